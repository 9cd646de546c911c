// Reserve, commit and named shared memory on mmap and /dev/shm.
//
// A reservation is an anonymous PROT_NONE mapping with MAP_NORESERVE; a commit is mprotect to
// read-write. Named objects are regular files on the tmpfs at /dev/shm (what shm_open opens), so a
// new one can be published with link(2), which fails when the name exists: two processes that make
// the same object at once end with one object, and neither sees the other's half-made one.
//
// Named memory keeps, one page behind its mapped part, a record of where its maker mapped it:
//   offset  size  meaning
//   0       8     kTailMagic
//   8       8     the maker's base address
//   16      8     the mapped size
#include "platform/shm.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/sync.h"
#include "platform/sys.h"

namespace kvd::platform {

namespace {

constexpr std::uint64_t kTailMagic = 0x4B56474152454E41ULL;  // "KVGARENA" read as a number
constexpr std::size_t kTailBytes = kPageSize;

std::atomic<unsigned> g_serial{0};

std::string PrivateName(const std::string& path) {
  return path + "." + std::to_string(ProcessId32()) + "." + std::to_string(g_serial.fetch_add(1)) + ".new";
}

// Writes zeros up to `size` by extending the file; tmpfs gives pages only when they are written.
bool SizeFile(int fd, std::size_t size) {
  return Sys().ftruncate(fd, static_cast<off_t>(size)) == 0 && ::fchmod(fd, 0666) == 0;
}

// Links the made file under `path`. True when ours is now the object; false with errno EEXIST when
// another process published first.
bool Publish(const std::string& made, const std::string& path) {
  const int rc = ::link(made.c_str(), path.c_str());
  const int err = errno;
  Sys().unlink(made.c_str());
  errno = err;
  return rc == 0;
}

std::size_t FileSize(int fd) {
  struct stat st;
  return ::fstat(fd, &st) == 0 ? static_cast<std::size_t>(st.st_size) : 0;
}

void* MapShared(int fd, std::size_t size, void* at, int extra_flags) {
  void* p = ::mmap(at, size, PROT_READ | PROT_WRITE, MAP_SHARED | extra_flags, fd, 0);
  return p == MAP_FAILED ? nullptr : p;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Address space

void* ReserveAddressSpace(std::size_t size, std::size_t alignment) {
  if (size == 0 || alignment < kPageSize || (alignment & (alignment - 1)) != 0) return nullptr;
  size = (size + kPageSize - 1) & ~(kPageSize - 1);
  const std::size_t span = size + alignment;
  void* p = ::mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t base = (start + alignment - 1) & ~static_cast<std::uintptr_t>(alignment - 1);
  if (base > start) ::munmap(p, base - start);
  const std::uintptr_t end = start + span;
  if (end > base + size) ::munmap(reinterpret_cast<void*>(base + size), end - (base + size));
  return reinterpret_cast<void*>(base);
}

bool CommitAddressSpace(void* at, std::size_t size) {
  return size == 0 || ::mprotect(at, size, PROT_READ | PROT_WRITE) == 0;
}

void ReleaseAddressSpace(void* at, std::size_t size) {
  if (at != nullptr && size != 0) ::munmap(at, size);
}

// ---------------------------------------------------------------------------------------------
// Named objects

std::string NamedObjectPath(std::string_view kind, std::string_view name) {
  if (name.empty()) return std::string();
  std::string file = "kv.";
  file.append(kind).push_back('.');
  for (char c : name) file.push_back(c == '/' ? '_' : c);
  if (file.size() + 24 > 255) return std::string();  // room for the private name's suffix
  return "/dev/shm/" + file;
}

SharedView OpenNamedObject(std::string_view kind, std::string_view name, std::size_t size, bool may_create,
                           bool (*init)(void* addr, void* ctx), void* ctx) {
  SharedView view;
  const std::string path = NamedObjectPath(kind, name);
  if (path.empty() || size == 0) return view;
  for (int attempt = 0; attempt < 8; ++attempt) {
    int fd = Sys().open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd >= 0) {
      if (FileSize(fd) >= size) view.addr = MapShared(fd, size, nullptr, 0);
      Sys().close(fd);
      if (view.addr != nullptr) view.size = size;
      return view;
    }
    if (errno != ENOENT || !may_create) return view;
    const std::string made = PrivateName(path);
    fd = Sys().open(made.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return view;
    void* p = SizeFile(fd, size) ? MapShared(fd, size, nullptr, 0) : nullptr;
    Sys().close(fd);
    if (p == nullptr || (init != nullptr && !init(p, ctx))) {
      if (p != nullptr) ::munmap(p, size);
      Sys().unlink(made.c_str());
      return view;
    }
    if (Publish(made, path)) {
      view.addr = p;
      view.size = size;
      view.created = true;
      return view;
    }
    ::munmap(p, size);
    if (errno != EEXIST) return view;
    // Another process published first: open theirs.
  }
  return view;
}

SharedView MapNamedMemory(std::string_view name, std::size_t size, std::size_t alignment) {
  SharedView view;
  const std::string path = NamedObjectPath(kNamedMemoryKind, name);
  if (path.empty() || size == 0 || size % kPageSize != 0) return view;
  for (int attempt = 0; attempt < 8; ++attempt) {
    int fd = Sys().open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd >= 0) {
      std::uint64_t tail[3] = {};
      const bool read = FileSize(fd) >= size + kTailBytes &&
                        Sys().pread(fd, tail, sizeof tail, static_cast<off_t>(size)) == static_cast<ssize_t>(sizeof tail);
      if (read && tail[0] == kTailMagic && tail[2] >= size) {
        void* want = reinterpret_cast<void*>(static_cast<std::uintptr_t>(tail[1]));
        void* p = MapShared(fd, size, want, MAP_FIXED_NOREPLACE);
        if (p != nullptr && p != want) {  // a kernel that took the address only as a hint
          ::munmap(p, size);
          p = nullptr;
        }
        if (p != nullptr) {
          view.addr = p;
          view.size = size;
        }
      }
      Sys().close(fd);
      return view;
    }
    if (errno != ENOENT) return view;
    const std::string made = PrivateName(path);
    fd = Sys().open(made.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return view;
    void* base = SizeFile(fd, size + kTailBytes) ? ReserveAddressSpace(size, alignment) : nullptr;
    void* p = base != nullptr ? MapShared(fd, size, base, MAP_FIXED) : nullptr;
    const std::uint64_t tail[3] = {kTailMagic, reinterpret_cast<std::uintptr_t>(base), size};
    const bool ok = p != nullptr &&
                    Sys().pwrite(fd, tail, sizeof tail, static_cast<off_t>(size)) == static_cast<ssize_t>(sizeof tail);
    Sys().close(fd);
    if (!ok) {
      if (base != nullptr) ::munmap(base, size);
      Sys().unlink(made.c_str());
      return view;
    }
    if (Publish(made, path)) {
      view.addr = p;
      view.size = size;
      view.created = true;
      return view;
    }
    ::munmap(p, size);
    if (errno != EEXIST) return view;
  }
  return view;
}

bool RemoveNamedObject(std::string_view kind, std::string_view name) {
  const std::string path = NamedObjectPath(kind, name);
  return !path.empty() && Sys().unlink(path.c_str()) == 0;
}

}  // namespace kvd::platform
