// Key expressions and filters: lexer, recursive-descent parser, and the evaluator that walks the
// parsed tree over a record buffer.
//
// Values while evaluating:
//   text     bytes written into a buffer the caller owns, with a length that may fall short of the
//            node's fixed maximum (TRIM and friends shorten it); only the finished key (and
//            EvalText of a text expression) is blank-padded to the maximum. So TRIM(A)+B joins the
//            trimmed A with B, and TRIM(A) == 'x' sees the trimmed text.
//   number   a double; NaN from arithmetic (inf - inf, 0/0) or from a binary field becomes 0, so
//            every key is a well-ordered number.
//   date     its Julian day number as a double; 0 is the blank date. Keys encode it like any
//            number, and 0 lies below every real date (0001-01-01 is 1721426), so blank dates sort
//            first. Date arithmetic keeps a blank date blank, and a result outside
//            0001-01-01 .. 9999-12-31 becomes blank.
//   logical  a bool.
//
// Details of the language decided here:
//   - Text `=` (and <>, #, !=, <, <=, >, >=) compares up to the right side's length; a left side
//     shorter than the right counts as blank-padded, so 'ab' = 'ab  ' holds and NAME = '' always
//     holds. There is no switch for an exact mode: `==` is the exact comparison (same length, same
//     bytes, trailing blanks included) and applies only to text; for other types it is `=`.
//   - Text - text moves the left side's trailing blanks to the end of the result.
//   - Unary + and - on numbers; date + days, days + date, date - days, date - date (in days; 0
//     when either date is blank). Fractions of days are cut off.
//   - A function may be named by the first four or more letters of its name when that is unique
//     (DELE, ALLT, SUBS). SUBSTR/LEFT/RIGHT positions below 1 count as 1; counts below 0 as 0.
//   - STR's width (1..255) and decimals (0..15) must be number literals, since they fix the key
//     length; a value that does not fit fills the width with '*'.
//   - Fields of types C N F B Y I D L are read; memo (M G P) and every other type (date-time T,
//     ...) are refused when parsing, as is a binary field whose width is not the one its type has.
//   - Error positions are 1-based byte offsets into the source.
//
// Evaluation allocates nothing for text that needs no scratch space (fields, literals, joins,
// UPPER/LOWER/TRIM, STR, DTOS, comparisons of fields with literals): the text is built in place
// in the caller's key buffer. SUBSTR/LEFT/RIGHT/VAL of a computed text and comparisons of two
// computed texts use a scratch area sized when the expression was parsed, on the stack when small.
// Every Eval call is const and touches no shared state, so one Expr may be evaluated from several
// threads at once.
#include "engine/expr.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "engine/codec.h"
#include "engine/number.h"

namespace kvd::engine {

struct Expr::Node {
  enum class Op : unsigned char {
    kField,     // a field of the record
    kText,      // a text literal
    kNumber,    // a number literal
    kLogical,   // .T. or .F.
    kRecno,     // RECNO()
    kDeleted,   // DELETED()
    kJoin,      // text + text
    kJoinMove,  // text - text: the left side's trailing blanks move to the end
    kAdd,
    kSub,
    kMul,
    kDiv,
    kNeg,       // unary minus
    kDateAdd,   // date + days (a is the date)
    kDateSub,   // date - days
    kDateDiff,  // date - date, in days
    kCompare,
    kAnd,
    kOr,
    kNot,
    kIif,
    kUpper,
    kLower,
    kRtrim,
    kLtrim,
    kAlltrim,
    kSubstr,
    kLeft,
    kRight,
    kStr,
    kVal,
    kDtos,
  };
  enum class Cmp : unsigned char { kEq, kExact, kNe, kLt, kLe, kGt, kGe };

  Op op = Op::kNumber;
  ExprType type = ExprType::kNumeric;  // result type; kInteger only for a bare I field
  Cmp cmp = Cmp::kEq;                  // kCompare: which comparison
  char field_type = 0;                 // kField: the field's type letter
  std::uint32_t offset = 0;            // kField: first byte of the field in the record
  std::uint32_t width = 0;             // kField: the field's width in bytes
  std::uint32_t len = 0;               // text results: the most bytes the value can have
  std::uint32_t scratch = 0;           // scratch bytes evaluating this subtree needs
  unsigned depth = 1;                  // nodes on the longest path down to a leaf
  std::size_t pos = 0;                 // where the node's text starts in the source (messages)
  double number = 0;                   // kNumber
  bool truth = false;                  // kLogical
  std::string text;                    // kText
  unsigned str_len = 10;               // kStr: width
  unsigned str_dec = 0;                // kStr: decimals
  std::unique_ptr<Node> a, b, c;       // operands, left to right; c only for SUBSTR and IIF
};

namespace {

using Node = Expr::Node;
using Op = Node::Op;
using Cmp = Node::Cmp;

// Limits that keep any input, however hostile, from exhausting the stack or memory.
constexpr unsigned kMaxNesting = 64;              // parentheses, calls and unary operators
constexpr unsigned kMaxDepth = 256;               // tree depth (long chains like A+B+C+...)
constexpr std::uint32_t kMaxText = 1u << 20;      // text length of any node
constexpr std::uint32_t kMaxScratch = 1u << 22;   // scratch bytes of a whole expression
constexpr unsigned kMaxStrWidth = 255;

constexpr long kFirstJulian = 1721426;  // 0001-01-01
constexpr long kLastJulian = 5373484;   // 9999-12-31

// ---------------------------------------------------------------------------------------------
// Dates

bool IsLeap(long y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

long DaysInMonth(long y, long m) {
  static constexpr unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeap(y) ? 29 : kDays[m - 1];
}

// Proleptic Gregorian calendar to Julian day number, for a valid date.
long CivilToJulian(long y, long m, long d) {
  const long a = (14 - m) / 12;  // 1 for January and February, which count as months of the year before
  const long yy = y + 4800 - a;
  const long mm = m + 12 * a - 3;  // March = 0
  return d + (153 * mm + 2) / 5 + 365 * yy + yy / 4 - yy / 100 + yy / 400 - 32045;
}

// "YYYYMMDD" of a Julian day number, or 8 blanks outside 0001-01-01 .. 9999-12-31.
void WriteDate(double julian, char* out) {
  if (!(julian >= kFirstJulian && julian <= kLastJulian)) {
    std::memset(out, ' ', 8);
    return;
  }
  const long j = static_cast<long>(julian);
  const long a = j + 32044;
  const long b = (4 * a + 3) / 146097;  // 400-year cycles
  const long c = a - 146097 * b / 4;
  const long d = (4 * c + 3) / 1461;  // 4-year cycles
  const long e = c - 1461 * d / 4;
  const long m = (5 * e + 2) / 153;  // month counted from March
  const long day = e - (153 * m + 2) / 5 + 1;
  const long month = m + 3 - 12 * (m / 10);
  long year = 100 * b + d - 4800 + m / 10;
  out[7] = static_cast<char>('0' + day % 10);
  out[6] = static_cast<char>('0' + day / 10);
  out[5] = static_cast<char>('0' + month % 10);
  out[4] = static_cast<char>('0' + month / 10);
  for (int i = 3; i >= 0; --i) {
    out[i] = static_cast<char>('0' + year % 10);
    year /= 10;
  }
}

// A date moved by date arithmetic: blank when it leaves the calendar we can write.
double CheckedDate(double julian) { return julian >= kFirstJulian && julian <= kLastJulian ? julian : 0; }

// ---------------------------------------------------------------------------------------------
// Evaluation

double Clean(double v) { return v != v ? 0.0 : v; }

// A count or a 1-based position from a number: NaN and values below 0 give 0, at most `limit`.
std::uint32_t ToCount(double v, std::uint32_t limit) {
  if (!(v > 0)) return 0;
  if (v >= limit) return limit;
  return static_cast<std::uint32_t>(v);
}

char Upper(char ch) { return ch >= 'a' && ch <= 'z' ? static_cast<char>(ch - 'a' + 'A') : ch; }
char Lower(char ch) { return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch; }

// Text nodes whose bytes can be looked at where they are, without being copied.
bool IsDirectText(const Node& n) {
  return n.op == Op::kText || (n.op == Op::kField && n.type == ExprType::kChar);
}

// Scratch bytes View() needs for a text node.
std::uint64_t ViewNeed(const Node& n) { return IsDirectText(n) ? 0 : std::uint64_t{n.len} + n.scratch; }

std::uint32_t Text(const Node& n, const ExprRecord& r, char* dst, char* scratch);
double Number(const Node& n, const ExprRecord& r, char* scratch);
bool Truth(const Node& n, const ExprRecord& r, char* scratch);

// The text of a text node: in the record or the literal when it is one, else built in `scratch`
// (n.len bytes, with the node's own scratch after them).
std::string_view View(const Node& n, const ExprRecord& r, char* scratch) {
  if (n.op == Op::kField) return std::string_view(r.record + n.offset, n.width);
  if (n.op == Op::kText) return n.text;
  const std::uint32_t got = Text(n, r, scratch, scratch + n.len);
  return std::string_view(scratch, got);
}

// Writes the text of `n` at `dst`, which never overlaps `scratch`, and returns its length. It may
// use all n.len bytes at `dst` on the way (LTRIM shifts left), so bytes past the returned length
// hold leftovers, not blanks.
std::uint32_t Text(const Node& n, const ExprRecord& r, char* dst, char* scratch) {
  switch (n.op) {
    case Op::kField:
      std::memcpy(dst, r.record + n.offset, n.width);
      return n.width;
    case Op::kText:
      std::memcpy(dst, n.text.data(), n.text.size());
      return static_cast<std::uint32_t>(n.text.size());
    case Op::kJoin: {
      const std::uint32_t left = Text(*n.a, r, dst, scratch);
      return left + Text(*n.b, r, dst + left, scratch);
    }
    case Op::kJoinMove: {
      const std::uint32_t left = Text(*n.a, r, dst, scratch);
      std::uint32_t kept = left;
      while (kept > 0 && dst[kept - 1] == ' ') --kept;
      const std::uint32_t right = Text(*n.b, r, dst + kept, scratch);
      std::memset(dst + kept + right, ' ', left - kept);
      return left + right;
    }
    case Op::kUpper:
    case Op::kLower: {
      const std::uint32_t got = Text(*n.a, r, dst, scratch);
      if (n.op == Op::kUpper) {
        for (std::uint32_t i = 0; i < got; ++i) dst[i] = Upper(dst[i]);
      } else {
        for (std::uint32_t i = 0; i < got; ++i) dst[i] = Lower(dst[i]);
      }
      return got;
    }
    case Op::kRtrim:
    case Op::kLtrim:
    case Op::kAlltrim: {
      std::uint32_t end = Text(*n.a, r, dst, scratch);
      std::uint32_t begin = 0;
      if (n.op != Op::kLtrim)
        while (end > 0 && dst[end - 1] == ' ') --end;
      if (n.op != Op::kRtrim) {
        while (begin < end && dst[begin] == ' ') ++begin;
        std::memmove(dst, dst + begin, end - begin);
      }
      return end - begin;
    }
    case Op::kSubstr:
    case Op::kLeft:
    case Op::kRight: {
      // The numbers first: their scratch is free again before the text takes it.
      const double first = n.op == Op::kSubstr ? Number(*n.b, r, scratch) : 1;
      const Node* count_node = n.op == Op::kSubstr ? n.c.get() : n.b.get();
      const double count = count_node != nullptr ? Number(*count_node, r, scratch) : 0;
      const std::string_view s = View(*n.a, r, scratch);
      const auto size = static_cast<std::uint32_t>(s.size());
      std::uint32_t start = 0;  // 0-based
      std::uint32_t take = 0;
      if (n.op == Op::kRight) {
        take = std::min(ToCount(count, size), size);
        start = size - take;
      } else {
        const std::uint32_t pos = std::max<std::uint32_t>(ToCount(first, size + 1), 1);
        start = pos - 1;
        take = size - start;
        if (count_node != nullptr) take = std::min(take, ToCount(count, size));
      }
      take = std::min(take, n.len);
      std::memcpy(dst, s.data() + start, take);
      return take;
    }
    case Op::kStr:
      FormatNumber(Number(*n.a, r, scratch), n.str_len, n.str_dec, dst);
      return n.str_len;
    case Op::kDtos:
      WriteDate(Number(*n.a, r, scratch), dst);
      return 8;
    case Op::kIif:
      return Truth(*n.a, r, scratch) ? Text(*n.b, r, dst, scratch) : Text(*n.c, r, dst, scratch);
    default:
      return 0;  // the parser gives no other node a text type
  }
}

double FieldNumber(const Node& n, const ExprRecord& r) {
  const char* p = r.record + n.offset;
  switch (n.field_type) {
    case 'N':
    case 'F':
      return Clean(ParseDouble(std::string_view(p, n.width)));
    case 'I':
      return static_cast<std::int32_t>(GetLE32(p));
    case 'B':
      return Clean(std::bit_cast<double>(GetLE64(p)));
    case 'Y':
      return static_cast<double>(static_cast<std::int64_t>(GetLE64(p))) / 10000.0;
    case 'D':
      return static_cast<double>(DateToJulian(std::string_view(p, n.width)));
    default:
      return 0;
  }
}

double Number(const Node& n, const ExprRecord& r, char* scratch) {
  switch (n.op) {
    case Op::kField:
      return FieldNumber(n, r);
    case Op::kNumber:
      return n.number;
    case Op::kRecno:
      return r.recno;
    case Op::kAdd:
      return Clean(Number(*n.a, r, scratch) + Number(*n.b, r, scratch));
    case Op::kSub:
      return Clean(Number(*n.a, r, scratch) - Number(*n.b, r, scratch));
    case Op::kMul:
      return Clean(Number(*n.a, r, scratch) * Number(*n.b, r, scratch));
    case Op::kDiv:
      return Clean(Number(*n.a, r, scratch) / Number(*n.b, r, scratch));
    case Op::kNeg:
      return -Number(*n.a, r, scratch);
    case Op::kDateAdd:
    case Op::kDateSub: {
      const double day = Number(*n.a, r, scratch);
      const double by = std::trunc(Number(*n.b, r, scratch));
      if (day == 0) return 0;
      return CheckedDate(n.op == Op::kDateAdd ? day + by : day - by);
    }
    case Op::kDateDiff: {
      const double x = Number(*n.a, r, scratch);
      const double y = Number(*n.b, r, scratch);
      return x == 0 || y == 0 ? 0 : x - y;
    }
    case Op::kVal:
      return Clean(ParseDouble(View(*n.a, r, scratch)));
    case Op::kIif:
      return Truth(*n.a, r, scratch) ? Number(*n.b, r, scratch) : Number(*n.c, r, scratch);
    default:
      return 0;
  }
}

// Three-way comparison of texts with `=` rules: up to the right side's length, the left side
// counting as blank-padded when it is shorter.
int CompareLoose(std::string_view left, std::string_view right) {
  const std::size_t common = std::min(left.size(), right.size());
  const int c = std::memcmp(left.data(), right.data(), common);
  if (c != 0) return c;
  for (std::size_t i = common; i < right.size(); ++i) {
    const auto ch = static_cast<unsigned char>(right[i]);
    if (ch != ' ') return ' ' < ch ? -1 : 1;
  }
  return 0;
}

int Sign(double x, double y) { return x < y ? -1 : (x > y ? 1 : 0); }

bool Compare(const Node& n, const ExprRecord& r, char* scratch) {
  int c = 0;
  switch (n.a->type) {
    case ExprType::kChar: {
      const std::string_view left = View(*n.a, r, scratch);
      const std::string_view right = View(*n.b, r, scratch + ViewNeed(*n.a));
      if (n.cmp == Cmp::kExact) return left == right;
      c = CompareLoose(left, right);
      break;
    }
    case ExprType::kLogical:
      c = static_cast<int>(Truth(*n.a, r, scratch)) - static_cast<int>(Truth(*n.b, r, scratch));
      break;
    default:  // numbers and dates
      c = Sign(Number(*n.a, r, scratch), Number(*n.b, r, scratch));
      break;
  }
  switch (n.cmp) {
    case Cmp::kEq:
    case Cmp::kExact:
      return c == 0;
    case Cmp::kNe:
      return c != 0;
    case Cmp::kLt:
      return c < 0;
    case Cmp::kLe:
      return c <= 0;
    case Cmp::kGt:
      return c > 0;
    case Cmp::kGe:
      return c >= 0;
  }
  return false;
}

bool Truth(const Node& n, const ExprRecord& r, char* scratch) {
  switch (n.op) {
    case Op::kField: {
      const char ch = r.record[n.offset];
      return ch == 'T' || ch == 't' || ch == 'Y' || ch == 'y';
    }
    case Op::kLogical:
      return n.truth;
    case Op::kDeleted:
      return r.record[0] == '*';
    case Op::kNot:
      return !Truth(*n.a, r, scratch);
    case Op::kAnd:
      return Truth(*n.a, r, scratch) && Truth(*n.b, r, scratch);
    case Op::kOr:
      return Truth(*n.a, r, scratch) || Truth(*n.b, r, scratch);
    case Op::kCompare:
      return Compare(n, r, scratch);
    case Op::kIif:
      return Truth(*n.a, r, scratch) ? Truth(*n.b, r, scratch) : Truth(*n.c, r, scratch);
    default:
      return false;
  }
}

// The scratch area of one evaluation: on the stack when small, else on the heap.
class Scratch {
 public:
  explicit Scratch(std::uint32_t need) {
    if (need > sizeof small_) {
      big_.reset(new char[need]);
      p_ = big_.get();
    }
  }
  char* get() { return p_; }

 private:
  char small_[256];
  std::unique_ptr<char[]> big_;
  char* p_ = small_;
};

// ---------------------------------------------------------------------------------------------
// Lexer and parser

enum class Tok : unsigned char {
  kEnd,
  kName,
  kNumber,
  kString,
  kLParen,
  kRParen,
  kComma,
  kPlus,
  kMinus,
  kStar,
  kSlash,
  kEq,     // =
  kExact,  // ==
  kNe,     // <> # !=
  kLt,
  kLe,
  kGt,
  kGe,
  kNot,  // .NOT. !
  kAnd,
  kOr,
  kTrue,
  kFalse,
};

struct Token {
  Tok kind = Tok::kEnd;
  std::size_t pos = 0;  // first byte in the source
  std::size_t end = 0;  // one past the last byte
  double number = 0;    // kNumber
};

struct Function {
  std::string_view name;
  Op op;
  unsigned min_args;
  unsigned max_args;
};

constexpr Function kFunctions[] = {
    {"UPPER", Op::kUpper, 1, 1},    {"LOWER", Op::kLower, 1, 1},   {"TRIM", Op::kRtrim, 1, 1},
    {"RTRIM", Op::kRtrim, 1, 1},    {"LTRIM", Op::kLtrim, 1, 1},   {"ALLTRIM", Op::kAlltrim, 1, 1},
    {"SUBSTR", Op::kSubstr, 2, 3},  {"LEFT", Op::kLeft, 2, 2},     {"RIGHT", Op::kRight, 2, 2},
    {"STR", Op::kStr, 1, 3},        {"VAL", Op::kVal, 1, 1},       {"DTOS", Op::kDtos, 1, 1},
    {"RECNO", Op::kRecno, 0, 0},    {"DELETED", Op::kDeleted, 0, 0}, {"IIF", Op::kIif, 3, 3},
};

std::string UpperCopy(std::string_view s) {
  std::string out(s);
  for (char& ch : out) ch = Upper(ch);
  return out;
}

// A function by its name, or by a unique abbreviation of at least four letters (DELE, ALLT).
const Function* FindFunction(const std::string& upper) {
  const Function* prefix = nullptr;
  int prefixes = 0;
  for (const Function& f : kFunctions) {
    if (f.name == upper) return &f;
    if (upper.size() >= 4 && f.name.starts_with(upper)) {
      prefix = &f;
      ++prefixes;
    }
  }
  return prefixes == 1 ? prefix : nullptr;
}

// Numbers, dates, texts and logicals; an I field counts as a number.
ExprType Kind(ExprType t) { return t == ExprType::kInteger ? ExprType::kNumeric : t; }
bool IsNumber(const Node& n) { return Kind(n.type) == ExprType::kNumeric; }

const char* TypeName(ExprType t) {
  switch (Kind(t)) {
    case ExprType::kChar:
      return "text";
    case ExprType::kDate:
      return "a date";
    case ExprType::kLogical:
      return "a logical";
    default:
      return "a number";
  }
}

bool IsBlank(char ch) { return ch == ' ' || ch == '\t' || ch == '\r' || ch == '\n'; }
bool IsLetter(char ch) { return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z') || ch == '_'; }
bool IsDigit(char ch) { return ch >= '0' && ch <= '9'; }

class Parser {
 public:
  Parser(std::string_view text, const std::vector<FieldLayout>& fields) : text_(text), fields_(fields) {}

  Status Run(std::unique_ptr<Node>* out) {
    KVD_RETURN_IF_ERROR(Advance());
    if (tok_.kind == Tok::kEnd) return Fail(tok_.pos, "empty expression");
    KVD_RETURN_IF_ERROR(Or(out));
    if (tok_.kind != Tok::kEnd) return Fail(tok_.pos, "unexpected " + Describe(tok_));
    return Status::Ok();
  }

 private:
  // "<what> at <1-based position> in '<source>'", a long source cut short.
  Status Fail(std::size_t pos, const std::string& what) const {
    constexpr std::size_t kQuote = 240;
    const std::string source =
        text_.size() <= kQuote ? std::string(text_) : std::string(text_.substr(0, kQuote)) + "...";
    return Status::InvalidArgument(what + " at " + std::to_string(pos + 1) + " in '" + source + "'");
  }

  std::string Describe(const Token& t) const {
    if (t.kind == Tok::kEnd) return "end of expression";
    return "'" + std::string(text_.substr(t.pos, std::min<std::size_t>(t.end - t.pos, 24))) + "'";
  }

  // Reads the next token into tok_.
  Status Advance() {
    std::size_t i = tok_.end;
    while (i < text_.size() && IsBlank(text_[i])) ++i;
    tok_ = Token{Tok::kEnd, i, i, 0};
    if (i >= text_.size()) return Status::Ok();
    const char ch = text_[i];
    const char next = i + 1 < text_.size() ? text_[i + 1] : '\0';
    auto single = [&](Tok k, std::size_t n) {
      tok_.kind = k;
      tok_.end = i + n;
      return Status::Ok();
    };
    if (IsLetter(ch)) {
      std::size_t j = i + 1;
      while (j < text_.size() && (IsLetter(text_[j]) || IsDigit(text_[j]))) ++j;
      return single(Tok::kName, j - i);
    }
    if (IsDigit(ch) || (ch == '.' && IsDigit(next))) {
      std::size_t j = i;
      while (j < text_.size() && IsDigit(text_[j])) ++j;
      if (j + 1 < text_.size() && text_[j] == '.' && IsDigit(text_[j + 1])) {
        ++j;
        while (j < text_.size() && IsDigit(text_[j])) ++j;
      }
      tok_.number = ParseDouble(text_.substr(i, j - i));
      return single(Tok::kNumber, j - i);
    }
    if (ch == '.') {
      std::size_t j = i + 1;
      while (j < text_.size() && IsLetter(text_[j])) ++j;
      if (j >= text_.size() || text_[j] != '.')
        return Fail(i, "unknown operator '" + std::string(text_.substr(i, std::min<std::size_t>(j - i, 24))) + "'");
      const std::string word = UpperCopy(text_.substr(i + 1, j - i - 1));
      const std::size_t n = j + 1 - i;
      if (word == "T" || word == "Y") return single(Tok::kTrue, n);
      if (word == "F" || word == "N") return single(Tok::kFalse, n);
      if (word == "AND") return single(Tok::kAnd, n);
      if (word == "OR") return single(Tok::kOr, n);
      if (word == "NOT") return single(Tok::kNot, n);
      return Fail(i, "unknown operator '." + word.substr(0, 20) + ".'");
    }
    if (ch == '\'' || ch == '"' || ch == '[') {
      const char close = ch == '[' ? ']' : ch;
      const std::size_t j = text_.find(close, i + 1);
      if (j == std::string_view::npos) return Fail(i, "unterminated text literal");
      return single(Tok::kString, j + 1 - i);
    }
    switch (ch) {
      case '(':
        return single(Tok::kLParen, 1);
      case ')':
        return single(Tok::kRParen, 1);
      case ',':
        return single(Tok::kComma, 1);
      case '+':
        return single(Tok::kPlus, 1);
      case '-':
        return single(Tok::kMinus, 1);
      case '*':
        return single(Tok::kStar, 1);
      case '/':
        return single(Tok::kSlash, 1);
      case '#':
        return single(Tok::kNe, 1);
      case '=':
        return next == '=' ? single(Tok::kExact, 2) : single(Tok::kEq, 1);
      case '!':
        return next == '=' ? single(Tok::kNe, 2) : single(Tok::kNot, 1);
      case '<':
        if (next == '>') return single(Tok::kNe, 2);
        return next == '=' ? single(Tok::kLe, 2) : single(Tok::kLt, 1);
      case '>':
        return next == '=' ? single(Tok::kGe, 2) : single(Tok::kGt, 1);
      default:
        break;
    }
    const auto byte = static_cast<unsigned char>(ch);
    if (byte >= 0x21 && byte < 0x7F) return Fail(i, std::string("unexpected character '") + ch + "'");
    static constexpr char kHex[] = "0123456789ABCDEF";
    return Fail(i, std::string("unexpected byte 0x") + kHex[byte >> 4] + kHex[byte & 15]);
  }

  Status Enter(std::size_t pos) {
    if (++nesting_ > kMaxNesting) return Fail(pos, "expression nested too deeply");
    return Status::Ok();
  }
  void Leave() { --nesting_; }

  // Fills in the depth and scratch of a node whose operands are attached, and checks the limits.
  Status Finish(Node* n, std::size_t at) {
    unsigned depth = 0;
    std::uint64_t kids = 0;
    for (const Node* k : {n->a.get(), n->b.get(), n->c.get()}) {
      if (k == nullptr) continue;
      depth = std::max(depth, k->depth);
      kids = std::max<std::uint64_t>(kids, k->scratch);
    }
    n->depth = depth + 1;
    if (n->depth > kMaxDepth) return Fail(at, "expression nested too deeply");
    std::uint64_t need = kids;
    switch (n->op) {
      case Op::kSubstr:
      case Op::kLeft:
      case Op::kRight:
      case Op::kVal:
        need = std::max(need, ViewNeed(*n->a));
        break;
      case Op::kCompare:
        if (n->a->type == ExprType::kChar) need = std::max(need, ViewNeed(*n->a) + ViewNeed(*n->b));
        break;
      default:
        break;
    }
    if (n->len > kMaxText || need > kMaxScratch) return Fail(at, "expression too large");
    n->scratch = static_cast<std::uint32_t>(need);
    return Status::Ok();
  }

  static std::unique_ptr<Node> NewNode(Op op, ExprType type, std::size_t pos) {
    auto n = std::make_unique<Node>();
    n->op = op;
    n->type = type;
    n->pos = pos;
    return n;
  }

  // Makes *lhs the left operand of a new binary node.
  Status Binary(Op op, ExprType type, std::size_t at, std::unique_ptr<Node>* lhs, std::unique_ptr<Node> rhs,
                std::uint64_t len = 0) {
    auto n = NewNode(op, type, (*lhs)->pos);
    if (len > kMaxText) return Fail(at, "expression too large");
    n->len = static_cast<std::uint32_t>(len);
    n->a = std::move(*lhs);
    n->b = std::move(rhs);
    KVD_RETURN_IF_ERROR(Finish(n.get(), at));
    *lhs = std::move(n);
    return Status::Ok();
  }

  Status NeedLogical(const Node& n, const char* op) const {
    if (n.type == ExprType::kLogical) return Status::Ok();
    return Fail(n.pos, std::string(op) + " needs a logical value, got " + TypeName(n.type));
  }

  Status Or(std::unique_ptr<Node>* out) {
    KVD_RETURN_IF_ERROR(And(out));
    while (tok_.kind == Tok::kOr) {
      const std::size_t at = tok_.pos;
      KVD_RETURN_IF_ERROR(Advance());
      std::unique_ptr<Node> rhs;
      KVD_RETURN_IF_ERROR(And(&rhs));
      KVD_RETURN_IF_ERROR(NeedLogical(**out, ".OR."));
      KVD_RETURN_IF_ERROR(NeedLogical(*rhs, ".OR."));
      KVD_RETURN_IF_ERROR(Binary(Op::kOr, ExprType::kLogical, at, out, std::move(rhs)));
    }
    return Status::Ok();
  }

  Status And(std::unique_ptr<Node>* out) {
    KVD_RETURN_IF_ERROR(Not(out));
    while (tok_.kind == Tok::kAnd) {
      const std::size_t at = tok_.pos;
      KVD_RETURN_IF_ERROR(Advance());
      std::unique_ptr<Node> rhs;
      KVD_RETURN_IF_ERROR(Not(&rhs));
      KVD_RETURN_IF_ERROR(NeedLogical(**out, ".AND."));
      KVD_RETURN_IF_ERROR(NeedLogical(*rhs, ".AND."));
      KVD_RETURN_IF_ERROR(Binary(Op::kAnd, ExprType::kLogical, at, out, std::move(rhs)));
    }
    return Status::Ok();
  }

  Status Not(std::unique_ptr<Node>* out) {
    if (tok_.kind != Tok::kNot) return Comparison(out);
    const std::size_t at = tok_.pos;
    KVD_RETURN_IF_ERROR(Enter(at));
    KVD_RETURN_IF_ERROR(Advance());
    std::unique_ptr<Node> operand;
    KVD_RETURN_IF_ERROR(Not(&operand));
    KVD_RETURN_IF_ERROR(NeedLogical(*operand, ".NOT."));
    auto n = NewNode(Op::kNot, ExprType::kLogical, at);
    n->a = std::move(operand);
    KVD_RETURN_IF_ERROR(Finish(n.get(), at));
    *out = std::move(n);
    Leave();
    return Status::Ok();
  }

  static bool IsComparison(Tok k, Cmp* cmp) {
    switch (k) {
      case Tok::kEq:
        *cmp = Cmp::kEq;
        return true;
      case Tok::kExact:
        *cmp = Cmp::kExact;
        return true;
      case Tok::kNe:
        *cmp = Cmp::kNe;
        return true;
      case Tok::kLt:
        *cmp = Cmp::kLt;
        return true;
      case Tok::kLe:
        *cmp = Cmp::kLe;
        return true;
      case Tok::kGt:
        *cmp = Cmp::kGt;
        return true;
      case Tok::kGe:
        *cmp = Cmp::kGe;
        return true;
      default:
        return false;
    }
  }

  Status Comparison(std::unique_ptr<Node>* out) {
    KVD_RETURN_IF_ERROR(Sum(out));
    Cmp cmp = Cmp::kEq;
    while (IsComparison(tok_.kind, &cmp)) {
      const Token op = tok_;
      KVD_RETURN_IF_ERROR(Advance());
      std::unique_ptr<Node> rhs;
      KVD_RETURN_IF_ERROR(Sum(&rhs));
      if (Kind((*out)->type) != Kind(rhs->type))
        return Fail(op.pos, std::string("cannot compare ") + TypeName((*out)->type) + " with " + TypeName(rhs->type));
      KVD_RETURN_IF_ERROR(Binary(Op::kCompare, ExprType::kLogical, op.pos, out, std::move(rhs)));
      (*out)->cmp = cmp;
    }
    return Status::Ok();
  }

  Status Sum(std::unique_ptr<Node>* out) {
    KVD_RETURN_IF_ERROR(Product(out));
    while (tok_.kind == Tok::kPlus || tok_.kind == Tok::kMinus) {
      const bool plus = tok_.kind == Tok::kPlus;
      const std::size_t at = tok_.pos;
      KVD_RETURN_IF_ERROR(Advance());
      std::unique_ptr<Node> rhs;
      KVD_RETURN_IF_ERROR(Product(&rhs));
      const ExprType l = Kind((*out)->type);
      const ExprType r = Kind(rhs->type);
      using T = ExprType;
      if (l == T::kChar && r == T::kChar) {
        const std::uint64_t len = std::uint64_t{(*out)->len} + rhs->len;
        KVD_RETURN_IF_ERROR(Binary(plus ? Op::kJoin : Op::kJoinMove, T::kChar, at, out, std::move(rhs), len));
      } else if (l == T::kNumeric && r == T::kNumeric) {
        KVD_RETURN_IF_ERROR(Binary(plus ? Op::kAdd : Op::kSub, T::kNumeric, at, out, std::move(rhs)));
      } else if (l == T::kDate && r == T::kNumeric) {
        KVD_RETURN_IF_ERROR(Binary(plus ? Op::kDateAdd : Op::kDateSub, T::kDate, at, out, std::move(rhs)));
      } else if (plus && l == T::kNumeric && r == T::kDate) {
        // days + date: keep the date on the left, where evaluation expects it
        const std::size_t pos = (*out)->pos;
        std::unique_ptr<Node> days = std::move(*out);
        *out = std::move(rhs);
        KVD_RETURN_IF_ERROR(Binary(Op::kDateAdd, T::kDate, at, out, std::move(days)));
        (*out)->pos = pos;
      } else if (!plus && l == T::kDate && r == T::kDate) {
        KVD_RETURN_IF_ERROR(Binary(Op::kDateDiff, T::kNumeric, at, out, std::move(rhs)));
      } else {
        return Fail(at, std::string(plus ? "cannot add " : "cannot subtract ") + TypeName(rhs->type) +
                            (plus ? " to " : " from ") + TypeName((*out)->type));
      }
    }
    return Status::Ok();
  }

  Status Product(std::unique_ptr<Node>* out) {
    KVD_RETURN_IF_ERROR(Unary(out));
    while (tok_.kind == Tok::kStar || tok_.kind == Tok::kSlash) {
      const bool times = tok_.kind == Tok::kStar;
      const std::size_t at = tok_.pos;
      KVD_RETURN_IF_ERROR(Advance());
      std::unique_ptr<Node> rhs;
      KVD_RETURN_IF_ERROR(Unary(&rhs));
      if (!IsNumber(**out) || !IsNumber(*rhs))
        return Fail(at, std::string(times ? "'*'" : "'/'") + " needs numbers, got " + TypeName((*out)->type) +
                            " and " + TypeName(rhs->type));
      KVD_RETURN_IF_ERROR(Binary(times ? Op::kMul : Op::kDiv, ExprType::kNumeric, at, out, std::move(rhs)));
    }
    return Status::Ok();
  }

  Status Unary(std::unique_ptr<Node>* out) {
    if (tok_.kind != Tok::kMinus && tok_.kind != Tok::kPlus) return Primary(out);
    const bool minus = tok_.kind == Tok::kMinus;
    const std::size_t at = tok_.pos;
    KVD_RETURN_IF_ERROR(Enter(at));
    KVD_RETURN_IF_ERROR(Advance());
    std::unique_ptr<Node> operand;
    KVD_RETURN_IF_ERROR(Unary(&operand));
    if (!IsNumber(*operand))
      return Fail(at, std::string("unary ") + (minus ? "'-'" : "'+'") + " needs a number, got " +
                          TypeName(operand->type));
    if (!minus) {
      *out = std::move(operand);
    } else if (operand->op == Op::kNumber) {
      operand->number = -operand->number;  // a negative literal stays a literal (STR widths, SUBSTR counts)
      operand->pos = at;
      *out = std::move(operand);
    } else {
      auto n = NewNode(Op::kNeg, ExprType::kNumeric, at);
      n->a = std::move(operand);
      KVD_RETURN_IF_ERROR(Finish(n.get(), at));
      *out = std::move(n);
    }
    Leave();
    return Status::Ok();
  }

  Status Primary(std::unique_ptr<Node>* out) {
    const Token t = tok_;
    switch (t.kind) {
      case Tok::kNumber: {
        auto n = NewNode(Op::kNumber, ExprType::kNumeric, t.pos);
        n->number = t.number;
        *out = std::move(n);
        return Advance();
      }
      case Tok::kString: {
        auto n = NewNode(Op::kText, ExprType::kChar, t.pos);
        n->text = std::string(text_.substr(t.pos + 1, t.end - t.pos - 2));
        if (n->text.size() > kMaxText) return Fail(t.pos, "text literal too long");
        n->len = static_cast<std::uint32_t>(n->text.size());
        *out = std::move(n);
        return Advance();
      }
      case Tok::kTrue:
      case Tok::kFalse: {
        auto n = NewNode(Op::kLogical, ExprType::kLogical, t.pos);
        n->truth = t.kind == Tok::kTrue;
        *out = std::move(n);
        return Advance();
      }
      case Tok::kLParen: {
        KVD_RETURN_IF_ERROR(Enter(t.pos));
        KVD_RETURN_IF_ERROR(Advance());
        KVD_RETURN_IF_ERROR(Or(out));
        if (tok_.kind != Tok::kRParen)
          return Fail(tok_.pos,
                      "expected ')' for the '(' at " + std::to_string(t.pos + 1) + ", found " + Describe(tok_));
        Leave();
        return Advance();
      }
      case Tok::kName: {
        KVD_RETURN_IF_ERROR(Advance());
        const std::string name = UpperCopy(text_.substr(t.pos, t.end - t.pos));
        if (tok_.kind == Tok::kLParen) return Call(name, t.pos, out);
        return FieldRef(name, t.pos, out);
      }
      case Tok::kEnd:
        return Fail(t.pos, "expected a value, found end of expression");
      default:
        return Fail(t.pos, "expected a value, found " + Describe(t));
    }
  }

  Status FieldRef(const std::string& name, std::size_t at, std::unique_ptr<Node>* out) {
    const FieldLayout* f = nullptr;
    for (const FieldLayout& candidate : fields_)
      if (UpperCopy(candidate.name) == name) {
        f = &candidate;
        break;
      }
    // A table that belongs to a database container keeps long field names there and only their
    // first ten characters in the table itself, while its index expressions use the long name.
    if (f == nullptr && name.size() > 10)
      for (const FieldLayout& candidate : fields_)
        if (UpperCopy(candidate.name) == name.substr(0, 10)) {
          f = &candidate;
          break;
        }
    if (f == nullptr) return Fail(at, "unknown field '" + name + "'");
    auto n = NewNode(Op::kField, ExprType::kNumeric, at);
    n->field_type = f->type;
    n->offset = f->offset;
    n->width = f->len;
    unsigned need_width = 0;  // the width a binary field must have
    switch (f->type) {
      case 'C':
        n->type = ExprType::kChar;
        n->len = f->len;
        break;
      case 'N':
      case 'F':
        break;
      case 'B':
      case 'Y':
        need_width = 8;
        break;
      case 'I':
        n->type = ExprType::kInteger;
        need_width = 4;
        break;
      case 'D':
        n->type = ExprType::kDate;
        need_width = 8;
        break;
      case 'L':
        n->type = ExprType::kLogical;
        need_width = 1;
        break;
      case 'M':
      case 'G':
      case 'P':
        return Fail(at, "memo field '" + name + "' cannot be used in an expression");
      default:
        return Fail(at,
                    "field '" + name + "' of type '" + std::string(1, f->type) + "' cannot be used in an expression");
    }
    if (need_width != 0 && f->len != need_width)
      return Fail(at, "field '" + name + "' of type '" + std::string(1, f->type) + "' has width " +
                          std::to_string(f->len) + ", not " + std::to_string(need_width));
    *out = std::move(n);
    return Status::Ok();
  }

  Status NeedArg(const Node& arg, ExprType kind, const Function& f, unsigned index) const {
    if (Kind(arg.type) == kind) return Status::Ok();
    return Fail(arg.pos, std::string(f.name) + " needs " + TypeName(kind) + " as argument " + std::to_string(index) +
                             ", got " + TypeName(arg.type));
  }

  // A whole-number constant argument (STR's width and decimals).
  Status ConstantArg(const Node& arg, const Function& f, const char* what, long lo, long hi, unsigned* value) const {
    if (arg.op != Op::kNumber)
      return Fail(arg.pos, std::string(f.name) + " needs a number literal as its " + what);
    if (!(arg.number >= lo && arg.number < hi + 1.0))
      return Fail(arg.pos, std::string(f.name) + " " + what + " must be from " + std::to_string(lo) + " to " +
                               std::to_string(hi));
    *value = static_cast<unsigned>(arg.number);
    return Status::Ok();
  }

  Status Call(const std::string& name, std::size_t at, std::unique_ptr<Node>* out) {
    const Function* f = FindFunction(name);
    if (f == nullptr) return Fail(at, "unknown function '" + name + "'");
    KVD_RETURN_IF_ERROR(Enter(at));
    KVD_RETURN_IF_ERROR(Advance());  // past '('
    std::unique_ptr<Node> args[3];
    unsigned count = 0;
    if (tok_.kind != Tok::kRParen) {
      for (;;) {
        if (count == f->max_args)
          return Fail(tok_.pos, std::string(f->name) + " takes at most " + std::to_string(f->max_args) + " argument" +
                                    (f->max_args == 1 ? "" : "s"));
        KVD_RETURN_IF_ERROR(Or(&args[count]));
        ++count;
        if (tok_.kind != Tok::kComma) break;
        KVD_RETURN_IF_ERROR(Advance());
      }
    }
    if (tok_.kind != Tok::kRParen)
      return Fail(tok_.pos, "expected ')' to close " + std::string(f->name) + "(, found " + Describe(tok_));
    if (count < f->min_args)
      return Fail(tok_.pos, std::string(f->name) + " needs " + std::to_string(f->min_args) + " argument" +
                                (f->min_args == 1 ? "" : "s") + ", got " + std::to_string(count));
    const std::size_t close = tok_.pos;
    Leave();
    KVD_RETURN_IF_ERROR(Advance());

    auto n = NewNode(f->op, ExprType::kChar, at);
    switch (f->op) {
      case Op::kUpper:
      case Op::kLower:
      case Op::kRtrim:
      case Op::kLtrim:
      case Op::kAlltrim:
        KVD_RETURN_IF_ERROR(NeedArg(*args[0], ExprType::kChar, *f, 1));
        n->len = args[0]->len;
        break;
      case Op::kSubstr:
      case Op::kLeft:
      case Op::kRight: {
        KVD_RETURN_IF_ERROR(NeedArg(*args[0], ExprType::kChar, *f, 1));
        for (unsigned i = 1; i < count; ++i) KVD_RETURN_IF_ERROR(NeedArg(*args[i], ExprType::kNumeric, *f, i + 1));
        // The most bytes the result can have, narrowed by whatever arguments are literals.
        std::uint32_t len = args[0]->len;
        const Node* count_arg = f->op == Op::kSubstr ? args[2].get() : args[1].get();
        if (f->op == Op::kSubstr && args[1]->op == Op::kNumber) {
          const std::uint32_t first = std::max<std::uint32_t>(ToCount(args[1]->number, len + 1), 1);
          len -= first - 1;
        }
        if (count_arg != nullptr && count_arg->op == Op::kNumber) len = std::min(len, ToCount(count_arg->number, len));
        n->len = len;
        break;
      }
      case Op::kStr:
        KVD_RETURN_IF_ERROR(NeedArg(*args[0], ExprType::kNumeric, *f, 1));
        if (count >= 2) KVD_RETURN_IF_ERROR(ConstantArg(*args[1], *f, "width", 1, kMaxStrWidth, &n->str_len));
        if (count >= 3) KVD_RETURN_IF_ERROR(ConstantArg(*args[2], *f, "decimals", 0, 15, &n->str_dec));
        n->len = n->str_len;
        break;
      case Op::kVal:
        KVD_RETURN_IF_ERROR(NeedArg(*args[0], ExprType::kChar, *f, 1));
        n->type = ExprType::kNumeric;
        break;
      case Op::kDtos:
        KVD_RETURN_IF_ERROR(NeedArg(*args[0], ExprType::kDate, *f, 1));
        n->len = 8;
        break;
      case Op::kRecno:
        n->type = ExprType::kNumeric;
        break;
      case Op::kDeleted:
        n->type = ExprType::kLogical;
        break;
      case Op::kIif: {
        KVD_RETURN_IF_ERROR(NeedArg(*args[0], ExprType::kLogical, *f, 1));
        const ExprType kind = Kind(args[1]->type);
        if (Kind(args[2]->type) != kind)
          return Fail(args[2]->pos, std::string("IIF needs both results of one type, got ") + TypeName(args[1]->type) +
                                        " and " + TypeName(args[2]->type));
        n->type = kind;
        n->len = std::max(args[1]->len, args[2]->len);
        break;
      }
      default:
        return Fail(at, "unknown function '" + name + "'");
    }
    n->a = std::move(args[0]);
    n->b = std::move(args[1]);
    n->c = std::move(args[2]);
    KVD_RETURN_IF_ERROR(Finish(n.get(), close));
    *out = std::move(n);
    return Status::Ok();
  }

  std::string_view text_;
  const std::vector<FieldLayout>& fields_;
  Token tok_;
  unsigned nesting_ = 0;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Expr

Expr::~Expr() = default;

Status Expr::Parse(std::string_view text, const std::vector<FieldLayout>& fields, std::unique_ptr<Expr>* out) {
  out->reset();
  std::unique_ptr<Node> root;
  KVD_RETURN_IF_ERROR(Parser(text, fields).Run(&root));
  std::unique_ptr<Expr> e(new Expr());
  e->type_ = root->type;
  switch (root->type) {
    case ExprType::kChar:
      e->key_length_ = root->len;
      break;
    case ExprType::kNumeric:
    case ExprType::kDate:
      e->key_length_ = 8;
      break;
    case ExprType::kInteger:
      e->key_length_ = 4;
      break;
    case ExprType::kLogical:
      e->key_length_ = 1;
      break;
  }
  e->source_ = std::string(text);
  e->root_ = std::move(root);
  *out = std::move(e);
  return Status::Ok();
}

std::string Expr::EvalText(const ExprRecord& r) const {
  Scratch scratch(root_->scratch);
  switch (type_) {
    case ExprType::kChar: {
      std::string s(key_length_, ' ');
      const std::uint32_t got = Text(*root_, r, s.data(), scratch.get());
      std::memset(s.data() + got, ' ', key_length_ - got);  // Text may leave bytes past `got` used
      return s;
    }
    case ExprType::kDate: {
      std::string s(8, ' ');
      WriteDate(Number(*root_, r, scratch.get()), s.data());
      return s;
    }
    case ExprType::kLogical:
      return Truth(*root_, r, scratch.get()) ? "T" : "F";
    default: {
      char buf[20];
      FormatNumber(Number(*root_, r, scratch.get()), sizeof buf, 4, buf);
      std::size_t i = 0;
      while (i < sizeof buf && buf[i] == ' ') ++i;
      return std::string(buf + i, sizeof buf - i);
    }
  }
}

double Expr::EvalNumber(const ExprRecord& r) const {
  switch (type_) {
    case ExprType::kChar:
      return Clean(ParseDouble(EvalText(r)));
    case ExprType::kLogical:
      return EvalLogical(r) ? 1 : 0;
    default: {
      Scratch scratch(root_->scratch);
      return Number(*root_, r, scratch.get());
    }
  }
}

bool Expr::EvalLogical(const ExprRecord& r) const {
  if (type_ != ExprType::kLogical) return false;
  Scratch scratch(root_->scratch);
  return Truth(*root_, r, scratch.get());
}

void Expr::EvalKey(const ExprRecord& r, std::string* key) const {
  key->resize(key_length_);
  char* out = key->data();
  Scratch scratch(root_->scratch);
  switch (type_) {
    case ExprType::kChar: {
      const std::uint32_t got = Text(*root_, r, out, scratch.get());
      std::memset(out + got, ' ', key_length_ - got);
      break;
    }
    case ExprType::kNumeric:
    case ExprType::kDate:
      EncodeNumberKey(Number(*root_, r, scratch.get()), reinterpret_cast<unsigned char*>(out));
      break;
    case ExprType::kInteger:
      EncodeIntegerKey(static_cast<std::int32_t>(GetLE32(r.record + root_->offset)),
                       reinterpret_cast<unsigned char*>(out));
      break;
    case ExprType::kLogical:
      out[0] = Truth(*root_, r, scratch.get()) ? 'T' : 'F';
      break;
  }
}

// ---------------------------------------------------------------------------------------------
// Key encodings and dates

void EncodeNumberKey(double v, unsigned char out[8]) {
  if (v == 0) v = 0;  // -0 sorts as +0
  std::uint64_t bits = std::bit_cast<std::uint64_t>(v);
  bits = (bits >> 63) != 0 ? ~bits : bits | (std::uint64_t{1} << 63);
  for (int i = 0; i < 8; ++i) out[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
}

double DecodeNumberKey(const unsigned char in[8]) {
  std::uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits = (bits << 8) | in[i];
  bits = (bits >> 63) != 0 ? bits & ~(std::uint64_t{1} << 63) : ~bits;
  return std::bit_cast<double>(bits);
}

void EncodeIntegerKey(std::int32_t v, unsigned char out[4]) {
  PutBE32(out, static_cast<std::uint32_t>(v) + 0x80000000u);
}

long DateToJulian(std::string_view yyyymmdd) {
  if (yyyymmdd.size() != 8) return 0;
  long digits[8];
  for (int i = 0; i < 8; ++i) {
    if (!IsDigit(yyyymmdd[i])) return 0;
    digits[i] = yyyymmdd[i] - '0';
  }
  const long y = digits[0] * 1000 + digits[1] * 100 + digits[2] * 10 + digits[3];
  const long m = digits[4] * 10 + digits[5];
  const long d = digits[6] * 10 + digits[7];
  if (y < 1 || m < 1 || m > 12 || d < 1 || d > DaysInMonth(y, m)) return 0;
  return CivilToJulian(y, m, d);
}

std::string JulianToDate(long julian) {
  std::string s(8, ' ');
  WriteDate(static_cast<double>(julian), s.data());
  return s;
}

}  // namespace kvd::engine
