// Whole files and directory paths over the platform's files; the directory maker is the one the
// tree operations use (tree_impl.h).
#include "lib/system/kvfile.h"

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "lib/system/tree_impl.h"
#include "platform/file.h"
#include "platform/status.h"

namespace {

using kvd::Status;
using kvd::platform::File;
using kvd::platform::OpenMode;

constexpr std::uint64_t kFourGigabytes = std::uint64_t{1} << 32;

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

// The parts of a path between separators. A path that begins with a separator has an empty first
// part (the root); a run of separators counts as one, and a trailing one ends the last part.
std::vector<std::string_view> SplitPath(std::string_view path) {
  std::vector<std::string_view> parts;
  std::size_t i = 0;
  if (!path.empty() && IsSeparator(path[0])) {
    parts.emplace_back();
    while (i < path.size() && IsSeparator(path[i])) ++i;
  }
  while (i < path.size()) {
    std::size_t end = i;
    while (end < path.size() && !IsSeparator(path[end])) ++end;
    parts.push_back(path.substr(i, end - i));
    while (end < path.size() && IsSeparator(path[end])) ++end;
    i = end;
  }
  return parts;
}

// The directory the first part of a path stands for: the root for an empty part, the top of the
// drive for "X:", else the part itself (relative to the current directory).
std::string TopOf(std::string_view first) {
  if (first.empty()) return "\\";
  if (first.size() == 2 && first[1] == ':') return std::string(first) + "\\";
  return std::string(first);
}

}  // namespace

bool KvCreateDirectory(KvString path, bool lastIsFile) {
  std::vector<std::string_view> parts = SplitPath(static_cast<const char*>(path));
  if (lastIsFile && !parts.empty()) parts.pop_back();
  if (parts.size() <= 1) return true;  // only the first part, which is taken as it stands
  // The first part is never made: a missing one leaves no level below it to make.
  if (!kvd::platform::DirectoryExists(TopOf(parts[0]))) return false;
  std::string dir(parts[0]);
  for (std::size_t i = 1; i < parts.size(); ++i) dir.append("\\").append(parts[i]);
  return kvd::lib::MakeDirectoryPath(dir, /*durable=*/false).ok();
}

unsigned char* KvReadFileToBuffer(const char* name, unsigned long* bytes) {
  if (bytes != nullptr) *bytes = 0;
  if (name == nullptr) return nullptr;
  std::unique_ptr<File> file;
  if (!File::Open(name, OpenMode::kRead, &file).ok()) return nullptr;
  const std::uint64_t size = file->size_at_open();
  if (size >= kFourGigabytes) return nullptr;
  std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[size + 1]);
  if (buffer == nullptr) return nullptr;
  std::size_t got = 0;
  if (!file->ReadAt(0, buffer.get(), static_cast<std::size_t>(size), &got).ok()) return nullptr;
  buffer[got] = 0;  // a file that shrank since the open gives what it still held
  if (bytes != nullptr) *bytes = static_cast<unsigned long>(got);
  return buffer.release();
}

bool KvWriteBufferToFile(const char* name, const unsigned char* data, unsigned long size) {
  if (name == nullptr || (data == nullptr && size != 0)) return false;
  // A directory that cannot be made shows in the open that follows.
  (void)KvCreateDirectory(name, true);
  std::unique_ptr<File> file;
  if (!File::Open(name, OpenMode::kCreate, &file).ok()) return false;
  return size == 0 || file->WriteAt(0, data, size).ok();
}
