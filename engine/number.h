// Numbers as text in fixed-width fields, the way xBase tables store them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kvd::engine {

// Writes `value` right-aligned with leading blanks into out[0..width), with `dec` digits after the
// point, rounded half away from zero. A value that does not fit fills the field with '*'.
// Negative zero is written as zero.
void FormatNumber(double value, unsigned width, unsigned dec, char* out);
// The same for an integer value (exact for the whole 64-bit range).
void FormatInteger(long long value, unsigned width, char* out);

// Reads the number at the start of `text` after leading blanks: an optional sign, digits, an
// optional point with digits, an optional exponent. Anything else ends the number; no number
// reads 0.
double ParseDouble(std::string_view text);
// Reads the integer part the same way (a fraction is cut off), clamped to the 32-bit range: the
// callers' longs are 32-bit values in their records.
std::int32_t ParseLong(std::string_view text);

}  // namespace kvd::engine
