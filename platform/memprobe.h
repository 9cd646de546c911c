// Whether this process may read or write an address: the stand-in for asking the system about a
// pointer before touching it (the memory dump of the class library marks each byte so).
//
// A MemoryMap is a snapshot of the process's mappings, taken from /proc/self/maps when it is made;
// mappings made or changed later are not in it. Reserved address space without access (the
// uncommitted part of the arena) reads as neither readable nor writable, as does an address in no
// mapping. Without /proc every address reads as neither.
// A MemoryMap belongs to one thread; making several at once from many threads is safe.
#pragma once

#include <cstdint>
#include <vector>

namespace kvd::platform {

struct MemoryAccess {
  bool readable = false;
  bool writable = false;
};

class MemoryMap {
 public:
  MemoryMap();  // reads the mappings of this moment
  MemoryAccess At(const void* p) const;

 private:
  struct Range {
    std::uintptr_t begin;  // first address
    std::uintptr_t end;    // one past the last
    MemoryAccess access;
  };
  std::vector<Range> ranges_;  // ascending, as the system lists them
};

}  // namespace kvd::platform
