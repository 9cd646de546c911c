// Address space and named shared memory for the class library's arena and semaphores.
//
// Address space is reserved without access and committed on demand, as the arena needs: a reserve
// costs nothing but addresses, a commit makes pages read-write, and fresh pages read as zeros.
//
// Named objects are files under /dev/shm, "kv.<kind>.<name>" ('/' in a name becomes '_'). A new
// object is made under a private name, filled, and then linked to its public name, so another
// process either finds nothing or finds it whole. An object stays until RemoveNamedObject, even
// when every process that used it has gone. Any thread may call these functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvd::platform {

// ---------------------------------------------------------------------------------------------
// Address space

// Reserves `size` bytes without access, starting on a multiple of `alignment` (a power of two of at
// least the page size). The system itself promises only page alignment, so this reserves
// size + alignment and gives back the ends. Returns null when the system refuses.
void* ReserveAddressSpace(std::size_t size, std::size_t alignment);
// Makes [at, at + size) read-write; `at` and `size` page multiples inside a reservation. Pages
// never written read as zeros.
bool CommitAddressSpace(void* at, std::size_t size);
// Gives back a reservation or a mapping, committed or not.
void ReleaseAddressSpace(void* at, std::size_t size);

constexpr std::size_t kPageSize = 4096;

// ---------------------------------------------------------------------------------------------
// Named objects

struct SharedView {
  void* addr = nullptr;  // the mapping, read-write, shared with every process that maps the name
  std::size_t size = 0;  // bytes mapped
  bool created = false;  // this call made the object
};

// The path of a named object: "/dev/shm/kv.<kind>.<name>". Empty for an empty name or one too long
// for a file name.
std::string NamedObjectPath(std::string_view kind, std::string_view name);

// Opens the named object of `size` bytes and maps it. When it does not exist and `may_create` is
// true, makes it: `init(addr, ctx)` fills the new zeroed memory before anyone else can see it, and
// the object is published only when it answers true. Result's addr is null when the object is
// missing (and may not be made), is smaller than `size`, or the system refuses. The caller unmaps
// with ReleaseAddressSpace(view.addr, view.size).
SharedView OpenNamedObject(std::string_view kind, std::string_view name, std::size_t size, bool may_create,
                           bool (*init)(void* addr, void* ctx), void* ctx);

// Maps the named memory `name` of `size` bytes at one address shared by all processes that map it.
// The maker reserves a place aligned to `alignment`, maps the object there and records the address
// in the object (one page behind the `size` bytes, which nobody maps). A later caller maps it at
// that recorded address and gets null when that place is taken in its own process, or when the
// object is smaller than `size`. The memory of a new object reads as zeros.
SharedView MapNamedMemory(std::string_view name, std::size_t size, std::size_t alignment);
// The kind MapNamedMemory files its objects under, for RemoveNamedObject.
constexpr std::string_view kNamedMemoryKind = "map";

// Removes the name; processes that have it mapped keep their mapping. False when it did not exist.
bool RemoveNamedObject(std::string_view kind, std::string_view name);

}  // namespace kvd::platform
