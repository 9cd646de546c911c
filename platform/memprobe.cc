#include "platform/memprobe.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

namespace kvd::platform {

MemoryMap::MemoryMap() {
  // Lines read "start-end perms offset dev inode [path]", addresses in hexadecimal, perms "rw-p".
  std::ifstream in("/proc/self/maps");
  std::string line;
  while (std::getline(in, line)) {
    unsigned long long begin = 0, end = 0;
    char perms[5] = {};
    if (std::sscanf(line.c_str(), "%llx-%llx %4s", &begin, &end, perms) != 3) continue;
    ranges_.push_back({static_cast<std::uintptr_t>(begin), static_cast<std::uintptr_t>(end),
                       {perms[0] == 'r', perms[1] == 'w'}});
  }
}

MemoryAccess MemoryMap::At(const void* p) const {
  const auto a = reinterpret_cast<std::uintptr_t>(p);
  auto it = std::upper_bound(ranges_.begin(), ranges_.end(), a,
                             [](std::uintptr_t v, const Range& r) { return v < r.begin; });
  if (it == ranges_.begin()) return {};
  --it;
  return a < it->end ? it->access : MemoryAccess{};
}

}  // namespace kvd::platform
