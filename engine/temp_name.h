// Names for files that are written aside and then renamed into place.
#pragma once

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "platform/env.h"
#include "platform/file.h"
#include "platform/path.h"

namespace kvd::engine {

// "<dir>.<name>.<tag>-<random>" beside `path`: in the same directory, so that the rename stays on
// one file system; hidden and random, so that two processes never pick the same temporary file and
// no table lister takes it for a table. The process id goes into the mix: a forked child goes on
// from its parent's counter, and a child killed while writing must not leave behind the very name
// its parent draws next.
inline std::string TempNameBeside(std::string_view path, std::string_view tag) {
  static std::atomic<std::uint64_t> counter{std::random_device{}()};
  const std::uint64_t pid = platform::ProcessId();
  const std::uint64_t n = (counter.fetch_add(0x9E3779B97F4A7C15ull) ^ (pid * 0xD6E8FEB86659FD93ull)) * 0xBF58476D1CE4E5B9ull;
  static const char kHex[] = "0123456789abcdef";
  std::string suffix;
  for (int i = 0; i < 12; ++i) suffix += kHex[(n >> (4 * i)) & 15];
  return std::string(platform::DirPart(path)) + "." + std::string(platform::NamePart(path)) + "." +
         std::string(tag) + "-" + suffix;
}

// Writes `bytes` as a new file under a temporary name beside `path` and puts it in place of `path`
// (refused with kBusy, nothing changed, while another opener holds the old file).
inline Status WriteNewFile(std::string_view path, const void* bytes, std::size_t n) {
  const std::string tmp = TempNameBeside(path, "new");
  {
    std::unique_ptr<platform::File> f;
    KVD_RETURN_IF_ERROR(platform::File::Open(tmp, platform::OpenMode::kCreateExclusive, &f));
    Status s = f->WriteAt(0, bytes, n);
    if (!s.ok()) {
      f.reset();
      platform::RemoveFile(tmp);
      return s;
    }
  }
  Status s = platform::ReplaceFile(tmp, path);
  if (!s.ok()) platform::RemoveFile(tmp);
  return s;
}

}  // namespace kvd::engine
