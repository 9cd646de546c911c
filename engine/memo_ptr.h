// Memo block numbers inside a record, and which fields hold them.
#pragma once

#include <cstdint>
#include <cstring>

#include "engine/codec.h"
#include "engine/data4_impl.h"
#include "engine/number.h"

namespace kvd::engine {

// Fields whose record bytes are a memo block number: M (memo), G (general), P (picture), and the
// 10-byte B of dBASE IV (a Visual FoxPro B is a double; those tables' memo pointers are 4 bytes).
inline bool IsMemoLayout(const FieldLayout& f) {
  return f.type == 'M' || f.type == 'G' || f.type == 'P' || (f.type == 'B' && f.len == 10);
}
inline bool IsMemoField(const FIELD4St& f) { return IsMemoLayout(f.layout); }

// Fields stored as binary numbers: their blank value is all zero bytes.
inline bool IsBinaryField(const FieldLayout& f) {
  return f.type == 'I' || f.type == 'T' || f.type == 'Y' || (f.type == 'B' && f.len == 8) ||
         (IsMemoLayout(f) && f.len == 4);
}

// A 10-byte pointer is ASCII digits right-aligned (blanks: no memo); a 4-byte one is little-endian.
inline std::uint32_t ReadMemoPointer(const char* p, unsigned len) {
  if (len == 4) return GetLE32(p);
  std::int32_t v = ParseLong(std::string_view(p, len));
  return v > 0 ? static_cast<std::uint32_t>(v) : 0;
}

inline void WriteMemoPointer(char* p, unsigned len, std::uint32_t block) {
  if (len == 4) {
    PutLE32(p, block);
  } else if (block == 0) {
    std::memset(p, ' ', len);
  } else {
    FormatInteger(block, len, p);
  }
}

}  // namespace kvd::engine
