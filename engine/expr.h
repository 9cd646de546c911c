// Key expressions and filters of index tags, evaluated on a record buffer.
//
// The language (case-insensitive, blanks anywhere between tokens):
//   field names of the table; string literals in '...' or "..." (or [...]); numbers (12, 1.5, .5);
//   .T. .F.; parentheses;
//   operators, lowest binding first:  .OR.   .AND.   .NOT. / !   comparisons (= == <> # != < > <= >=)
//   + and - (text + text joins, number + number adds, date + number adds days), * / ;
//   functions: UPPER(c) LOWER(c) TRIM(c) RTRIM(c) LTRIM(c) ALLTRIM(c) SUBSTR(c,start[,n]) LEFT(c,n)
//   RIGHT(c,n) STR(n[,len[,dec]]) VAL(c) DTOS(d) RECNO() DELETED() IIF(l,a,b).
// Text comparison with = compares up to the length of the right side (dBASE's non-exact rule);
// == compares exactly.
//
// Types and lengths: every expression has a fixed result type and, for text, a fixed length
// computed from the fields when it is parsed (a field's width, the sum of a +, STR's len, the
// SUBSTR/LEFT count, the argument's width for TRIM and friends). Inside the expression a trimmed
// text keeps its real length, so TRIM(LAST)+FIRST joins without the blanks; the finished result is
// blank-padded to the fixed length, which is the key length of a tag on the expression.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/dbf_file.h"
#include "platform/status.h"

namespace kvd::engine {

enum class ExprType : char {
  kChar = 'C',
  kNumeric = 'N',  // N, F, B (double), Y fields and all arithmetic
  kDate = 'D',
  kLogical = 'L',
  kInteger = 'I',  // a bare 4-byte integer field (Visual FoxPro "I"): its keys are 4 bytes
};

// What an expression looks at: a record buffer (deletion byte + fields, as the table stores it)
// and its record number.
struct ExprRecord {
  const char* record;
  std::uint32_t recno;
};

class Expr {
 public:
  // Parses `text` against the table's fields. A syntax error, an unknown field or function, or a
  // type mismatch gives kInvalidArgument with a message naming the position ("unknown field 'FOO'
  // at 4 in 'UPPER(FOO)'"). Memo fields cannot be used. Never crashes on any input.
  static Status Parse(std::string_view text, const std::vector<FieldLayout>& fields, std::unique_ptr<Expr>* out);
  virtual ~Expr();

  ExprType type() const { return type_; }
  // Key length: the text length for kChar, 8 for kNumeric and kDate, 4 for kInteger, 1 for kLogical.
  unsigned key_length() const { return key_length_; }
  const std::string& source() const { return source_; }

  // The value in each form. EvalText of a non-text expression gives its text form (a number as
  // STR(n, 20, 4) trimmed, a date as YYYYMMDD, a logical as T or F); EvalNumber of a date is its
  // Julian day number (0 for a blank date); EvalLogical of a non-logical expression is false.
  std::string EvalText(const ExprRecord& r) const;
  double EvalNumber(const ExprRecord& r) const;
  bool EvalLogical(const ExprRecord& r) const;

  // The index key of the record, exactly key_length() bytes whose byte order (memcmp) is the
  // order of the values: text blank-padded; numbers and dates by EncodeNumberKey; integers by
  // EncodeIntegerKey; logicals 'T' or 'F'.
  void EvalKey(const ExprRecord& r, std::string* key) const;

  struct Node;  // the parsed tree (expr.cc)

 private:
  Expr() = default;
  std::unique_ptr<Node> root_;
  ExprType type_ = ExprType::kChar;
  unsigned key_length_ = 0;
  std::string source_;
};

// 8 bytes whose memcmp order is the numeric order: the IEEE-754 double big-endian, with the sign
// bit flipped for values >= 0 (-0 counts as +0) and every bit inverted for negative values.
void EncodeNumberKey(double v, unsigned char out[8]);
double DecodeNumberKey(const unsigned char in[8]);
// 4 bytes: big-endian of (value + 0x80000000).
void EncodeIntegerKey(std::int32_t v, unsigned char out[4]);
// Julian day number of a "YYYYMMDD" date (1990-01-02 -> 2447894); 0 for blanks or nonsense.
long DateToJulian(std::string_view yyyymmdd);
// "YYYYMMDD" of a Julian day number; 8 blanks for 0 or below.
std::string JulianToDate(long julian);

}  // namespace kvd::engine
