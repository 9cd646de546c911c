// Fixed-width integers in and out of byte buffers, each read saying its byte order.
// The xBase formats mix orders: DBF headers are little-endian, FPT headers and memo block heads
// are big-endian, and a CDX interior entry keeps a little-endian count beside big-endian record
// numbers. No struct is ever laid over disk bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvd::engine {

inline std::uint16_t GetLE16(const void* p) {
  auto b = static_cast<const unsigned char*>(p);
  return static_cast<std::uint16_t>(b[0] | (b[1] << 8));
}
inline std::uint32_t GetLE32(const void* p) {
  auto b = static_cast<const unsigned char*>(p);
  return std::uint32_t{b[0]} | (std::uint32_t{b[1]} << 8) | (std::uint32_t{b[2]} << 16) |
         (std::uint32_t{b[3]} << 24);
}
inline std::uint32_t GetBE32(const void* p) {
  auto b = static_cast<const unsigned char*>(p);
  return (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) |
         std::uint32_t{b[3]};
}
inline std::uint16_t GetBE16(const void* p) {
  auto b = static_cast<const unsigned char*>(p);
  return static_cast<std::uint16_t>((b[0] << 8) | b[1]);
}
inline std::uint64_t GetLE64(const void* p) {
  auto b = static_cast<const unsigned char*>(p);
  return std::uint64_t{GetLE32(b)} | (std::uint64_t{GetLE32(b + 4)} << 32);
}

inline void PutLE16(void* p, std::uint16_t v) {
  auto b = static_cast<unsigned char*>(p);
  b[0] = static_cast<unsigned char>(v);
  b[1] = static_cast<unsigned char>(v >> 8);
}
inline void PutLE32(void* p, std::uint32_t v) {
  auto b = static_cast<unsigned char*>(p);
  for (int i = 0; i < 4; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline void PutBE32(void* p, std::uint32_t v) {
  auto b = static_cast<unsigned char*>(p);
  for (int i = 0; i < 4; ++i) b[i] = static_cast<unsigned char>(v >> (24 - 8 * i));
}
inline void PutBE16(void* p, std::uint16_t v) {
  auto b = static_cast<unsigned char*>(p);
  b[0] = static_cast<unsigned char>(v >> 8);
  b[1] = static_cast<unsigned char>(v);
}

}  // namespace kvd::engine
