// Fuzz target: the input, taken as it is, is a key expression or filter parsed against a fixed
// field list (every field type the evaluator reads, plus a memo and a date-time field it must
// refuse). A parse that fails must say kInvalidArgument with a position and leave no expression.
// A parse that succeeds is evaluated every way (EvalText, EvalNumber, EvalLogical, EvalKey) on a
// few fixed records: an ordinary one, a deleted blank one, and two full of damage (stars in
// numbers, impossible dates, NaN and extreme binary values, bytes above 0x7F and NUL in text).
// The forms must agree with each other, the key must have key_length() bytes, and evaluating
// into a buffer that still holds another record's key must give the same key as into an empty one.
//
// Built as a libFuzzer target (fuzz_expr) with KVD_FUZZ, else linked with replay_main.cc into
// fuzz_replay_expr, which runs every file of corpus/expr through the same function as a test.
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/codec.h"
#include "engine/expr.h"

// Set by fuzz_replay_expr: say on stderr what each input came to (never under the fuzzer).
bool g_fuzz_report = false;

namespace {

using kvd::Status;
using kvd::engine::Expr;
using kvd::engine::ExprRecord;
using kvd::engine::ExprType;
using kvd::engine::FieldLayout;

struct Table {
  std::vector<FieldLayout> fields;
  std::uint32_t reclen = 1;
  std::vector<std::string> records;
  std::vector<std::uint32_t> recnos;

  void Add(const char* name, char type, std::uint16_t len, std::uint8_t dec = 0) {
    FieldLayout f;
    f.name = name;
    f.type = type;
    f.len = len;
    f.dec = dec;
    f.offset = reclen;
    reclen += len;
    fields.push_back(f);
  }
  const FieldLayout& Field(std::string_view name) const {
    for (const FieldLayout& f : fields)
      if (f.name == name) return f;
    std::abort();
  }
  // Raw bytes into a field, cut or blank-padded to its width.
  static void Put(std::string* rec, const FieldLayout& f, std::string_view bytes) {
    for (std::size_t i = 0; i < f.len; ++i) (*rec)[f.offset + i] = i < bytes.size() ? bytes[i] : ' ';
  }
  static void Put64(std::string* rec, const FieldLayout& f, std::uint64_t v) {
    kvd::engine::PutLE32(&(*rec)[f.offset], static_cast<std::uint32_t>(v));
    kvd::engine::PutLE32(&(*rec)[f.offset + 4], static_cast<std::uint32_t>(v >> 32));
  }
};

const Table& TheTable() {
  static const Table t = [] {
    Table t;
    t.Add("NAME", 'C', 10);
    t.Add("CITY", 'C', 8);
    t.Add("VALUE", 'N', 8, 2);
    t.Add("COUNT", 'N', 5);
    t.Add("RATE", 'F', 12, 3);
    t.Add("BORN", 'D', 8);
    t.Add("DUE", 'D', 8);
    t.Add("ACTIVE", 'L', 1);
    t.Add("QTY", 'I', 4);
    t.Add("WEIGHT", 'B', 8);
    t.Add("PRICE", 'Y', 8);
    t.Add("NOTES", 'M', 10);
    t.Add("ID", 'C', 6);
    t.Add("WIDE", 'C', 200);
    t.Add("STAMP", 'T', 8);
    auto f = [&t](const char* n) -> const FieldLayout& { return t.Field(n); };

    std::string plain(t.reclen, ' ');
    Table::Put(&plain, f("NAME"), "Smith");
    Table::Put(&plain, f("CITY"), "Oslo");
    Table::Put(&plain, f("VALUE"), "  -12.50");
    Table::Put(&plain, f("COUNT"), "    7");
    Table::Put(&plain, f("RATE"), "       0.125");
    Table::Put(&plain, f("BORN"), "19900102");
    Table::Put(&plain, f("DUE"), "20240229");
    Table::Put(&plain, f("ACTIVE"), "T");
    kvd::engine::PutLE32(&plain[f("QTY").offset], static_cast<std::uint32_t>(-7));
    Table::Put64(&plain, f("WEIGHT"), std::bit_cast<std::uint64_t>(2.25));
    Table::Put64(&plain, f("PRICE"), 123456);
    Table::Put(&plain, f("ID"), "42.5ab");
    Table::Put(&plain, f("WIDE"), "a wide text field with words in it");
    t.records.push_back(plain);
    t.recnos.push_back(1);

    std::string blank(t.reclen, ' ');
    blank[0] = '*';
    for (const char* n : {"QTY", "WEIGHT", "PRICE", "STAMP"}) std::memset(&blank[f(n).offset], 0, f(n).len);
    t.records.push_back(blank);
    t.recnos.push_back(2);

    std::string damaged(t.reclen, ' ');
    Table::Put(&damaged, f("NAME"), std::string_view("\xFF\0a\x80 z\t", 7));
    Table::Put(&damaged, f("CITY"), "        ");
    Table::Put(&damaged, f("VALUE"), "********");
    Table::Put(&damaged, f("COUNT"), "   -0");
    Table::Put(&damaged, f("RATE"), "-1e308e9999");
    Table::Put(&damaged, f("BORN"), "20230230");
    Table::Put(&damaged, f("DUE"), "99991231");
    Table::Put(&damaged, f("ACTIVE"), "?");
    kvd::engine::PutLE32(&damaged[f("QTY").offset], 0x80000000u);
    Table::Put64(&damaged, f("WEIGHT"), 0xFFF8000000000001ull);  // a NaN
    Table::Put64(&damaged, f("PRICE"), 0x8000000000000000ull);
    Table::Put(&damaged, f("ID"), "1e999");
    Table::Put(&damaged, f("WIDE"), std::string(200, '\0'));
    Table::Put64(&damaged, f("STAMP"), ~0ull);
    t.records.push_back(damaged);
    t.recnos.push_back(0x07FFFFFF);

    std::string extreme(t.reclen, ' ');
    Table::Put(&extreme, f("NAME"), "zzzzzzzzzz");
    Table::Put(&extreme, f("VALUE"), "99999.99");
    Table::Put(&extreme, f("COUNT"), "99999");
    Table::Put(&extreme, f("RATE"), "1e308");
    Table::Put(&extreme, f("BORN"), "00010101");
    Table::Put(&extreme, f("DUE"), "        ");
    Table::Put(&extreme, f("ACTIVE"), "y");
    kvd::engine::PutLE32(&extreme[f("QTY").offset], 0x7FFFFFFFu);
    Table::Put64(&extreme, f("WEIGHT"), std::bit_cast<std::uint64_t>(-std::numeric_limits<double>::infinity()));
    Table::Put64(&extreme, f("PRICE"), 0x7FFFFFFFFFFFFFFFull);
    Table::Put(&extreme, f("ID"), "-0.000");
    t.records.push_back(extreme);
    t.recnos.push_back(0);
    return t;
  }();
  return t;
}

void Check(bool ok, const char* what, const Expr& e) {
  if (ok) return;
  std::fprintf(stderr, "expr_fuzz: %s for '%s'\n", what, e.source().c_str());
  std::abort();
}

void Evaluate(const Expr& e, const ExprRecord& r, std::string* stale) {
  const std::string text = e.EvalText(r);
  const double number = e.EvalNumber(r);
  const bool truth = e.EvalLogical(r);
  std::string key;
  e.EvalKey(r, &key);
  Check(key.size() == e.key_length(), "key length", e);
  // *stale holds the previous record's key: evaluating over it must not change the result.
  e.EvalKey(r, stale);
  Check(*stale == key, "key depends on the old buffer", e);
  Check(!std::isnan(number), "NaN", e);
  unsigned char enc[8];
  switch (e.type()) {
    case ExprType::kChar:
      Check(text == key, "text and key differ", e);
      Check(!truth, "text is true", e);
      break;
    case ExprType::kNumeric:
    case ExprType::kDate:
      kvd::engine::EncodeNumberKey(number, enc);
      Check(std::memcmp(enc, key.data(), 8) == 0, "number and key differ", e);
      Check(kvd::engine::DecodeNumberKey(enc) == number, "key does not decode", e);
      if (e.type() == ExprType::kDate) {
        Check(number == std::floor(number), "date with a fraction", e);
        Check(text == kvd::engine::JulianToDate(static_cast<long>(number)), "date text", e);
        Check(number == 0 || kvd::engine::DateToJulian(text) == static_cast<long>(number), "date round trip", e);
      }
      Check(!truth, "number is true", e);
      break;
    case ExprType::kInteger:
      Check(number == std::trunc(number) && std::fabs(number) <= 2147483648.0, "integer range", e);
      kvd::engine::EncodeIntegerKey(static_cast<std::int32_t>(number), enc);
      Check(std::memcmp(enc, key.data(), 4) == 0, "integer and key differ", e);
      break;
    case ExprType::kLogical:
      Check(key == (truth ? "T" : "F"), "logical and key differ", e);
      Check(text == key, "logical text", e);
      Check(number == (truth ? 1 : 0), "logical number", e);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Table& t = TheTable();
  std::unique_ptr<Expr> e;
  const Status s = Expr::Parse(text, t.fields, &e);
  if (!s.ok()) {
    if (s.kind() != Status::Kind::kInvalidArgument || e != nullptr || s.message().find(" at ") == std::string::npos) {
      std::fprintf(stderr, "expr_fuzz: bad failure: %s\n", s.ToString().c_str());
      std::abort();
    }
    if (g_fuzz_report) std::fprintf(stderr, "  refused: %s\n", s.message().c_str());
    return 0;
  }
  if (e == nullptr || e->source() != text) std::abort();
  std::string stale = "left over from before";
  for (std::size_t i = 0; i < t.records.size(); ++i) {
    const ExprRecord r{t.records[i].data(), t.recnos[i]};
    Evaluate(*e, r, &stale);
    if (g_fuzz_report)
      std::fprintf(stderr, "  type %c, key length %u, record %zu: '%s'\n", static_cast<char>(e->type()),
                   e->key_length(), i + 1, e->EvalText(r).c_str());
  }
  return 0;
}
