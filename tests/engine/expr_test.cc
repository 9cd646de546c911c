// Key expressions and filters, parsed against a field list and evaluated on records built by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "engine/codec.h"
#include "engine/expr.h"

namespace kvd::engine {
namespace {

// A field list with offsets laid out the way the table stores them (deletion byte at 0).
class Layout {
 public:
  Layout& Add(const char* name, char type, std::uint16_t len, std::uint8_t dec = 0) {
    FieldLayout f;
    f.name = name;
    f.type = type;
    f.len = len;
    f.dec = dec;
    f.offset = reclen_;
    reclen_ += len;
    fields_.push_back(f);
    return *this;
  }
  const std::vector<FieldLayout>& fields() const { return fields_; }
  const FieldLayout& field(const std::string& name) const {
    for (const FieldLayout& f : fields_)
      if (f.name == name) return f;
    ADD_FAILURE() << "no field " << name;
    return fields_.front();
  }
  std::uint32_t reclen() const { return reclen_; }

 private:
  std::vector<FieldLayout> fields_;
  std::uint32_t reclen_ = 1;
};

// One record buffer: blank (binary fields zero), then filled field by field.
class Rec {
 public:
  explicit Rec(const Layout& l) : l_(&l), bytes_(l.reclen(), ' ') {
    for (const FieldLayout& f : l.fields())
      if (f.type == 'I' || f.type == 'B' || f.type == 'Y') std::memset(&bytes_[f.offset], 0, f.len);
  }
  // Text fields left-aligned, numeric fields right-aligned, both blank-padded.
  Rec& Set(const std::string& name, const std::string& text) {
    const FieldLayout& f = l_->field(name);
    EXPECT_LE(text.size(), f.len) << name;
    const std::size_t n = std::min<std::size_t>(text.size(), f.len);
    char* p = &bytes_[f.offset];
    std::memset(p, ' ', f.len);
    if (f.type == 'N' || f.type == 'F')
      std::memcpy(p + f.len - n, text.data(), n);
    else
      std::memcpy(p, text.data(), n);
    return *this;
  }
  Rec& Int(const std::string& name, std::int32_t v) {
    PutLE32(&bytes_[l_->field(name).offset], static_cast<std::uint32_t>(v));
    return *this;
  }
  Rec& Bits(const std::string& name, std::uint64_t v) {
    char* p = &bytes_[l_->field(name).offset];
    PutLE32(p, static_cast<std::uint32_t>(v));
    PutLE32(p + 4, static_cast<std::uint32_t>(v >> 32));
    return *this;
  }
  Rec& Dbl(const std::string& name, double v) { return Bits(name, std::bit_cast<std::uint64_t>(v)); }
  Rec& Cur(const std::string& name, std::int64_t v) { return Bits(name, static_cast<std::uint64_t>(v)); }
  Rec& Delete() {
    bytes_[0] = '*';
    return *this;
  }
  ExprRecord at(std::uint32_t recno = 1) const { return ExprRecord{bytes_.data(), recno}; }

 private:
  const Layout* l_;
  std::string bytes_;
};

const Layout& Table() {
  static const Layout l = [] {
    Layout t;
    t.Add("NAME", 'C', 10).Add("CITY", 'C', 8).Add("VALUE", 'N', 8, 2).Add("COUNT", 'N', 5).Add("RATE", 'F', 10, 3);
    t.Add("BORN", 'D', 8).Add("DUE", 'D', 8).Add("ACTIVE", 'L', 1).Add("QTY", 'I', 4).Add("WEIGHT", 'B', 8);
    t.Add("PRICE", 'Y', 8).Add("NOTES", 'M', 10).Add("ID", 'C', 6).Add("PTYPE", 'C', 2).Add("TEXTREF", 'C', 10);
    t.Add("STAMP", 'T', 8);
    return t;
  }();
  return l;
}

std::unique_ptr<Expr> Parse(const std::string& text) {
  std::unique_ptr<Expr> e;
  const Status s = Expr::Parse(text, Table().fields(), &e);
  EXPECT_TRUE(s.ok()) << text << ": " << s.ToString();
  return e;
}

std::string Key(const Expr& e, const Rec& r, std::uint32_t recno = 1) {
  std::string k;
  e.EvalKey(r.at(recno), &k);
  EXPECT_EQ(k.size(), e.key_length()) << e.source();
  return k;
}

std::string NumberKey(double v) {
  unsigned char k[8];
  EncodeNumberKey(v, k);
  return std::string(reinterpret_cast<char*>(k), 8);
}

std::string Text(const std::string& expr, const Rec& r, std::uint32_t recno = 1) {
  auto e = Parse(expr);
  return e ? e->EvalText(r.at(recno)) : "<parse failed>";
}
double Number(const std::string& expr, const Rec& r, std::uint32_t recno = 1) {
  auto e = Parse(expr);
  return e ? e->EvalNumber(r.at(recno)) : std::nan("");
}
bool Truth(const std::string& expr, const Rec& r) {
  auto e = Parse(expr);
  return e ? e->EvalLogical(r.at()) : false;
}

// A record most tests share.
Rec Sample() {
  Rec r(Table());
  r.Set("NAME", "Smith").Set("CITY", "Oslo").Set("VALUE", "-12.50").Set("COUNT", "7").Set("RATE", "0.125");
  r.Set("BORN", "19900102").Set("DUE", "19900112").Set("ACTIVE", "T").Int("QTY", -7).Dbl("WEIGHT", 2.25);
  r.Cur("PRICE", 123456).Set("ID", "42.5ab").Set("PTYPE", "PX").Set("TEXTREF", "T0001");
  return r;
}

// ---------------------------------------------------------------------------------------------

TEST(ExprParse, TypesAndKeyLengths) {
  struct Group {
    ExprType type;
    unsigned key_length;  // 0: the text's own length, given with each expression
    std::vector<std::pair<const char*, unsigned>> texts;
  };
  const Group groups[] = {
      {ExprType::kChar, 0, {{"NAME", 10}, {"name", 10}, {"NAME+CITY", 18}, {"NAME-CITY", 18}, {"PTYPE+TEXTREF", 12},
                            {"ID+STR(VALUE,9,3)", 15}, {"STR(VALUE,5,1)", 5}, {"STR(VALUE)", 10}, {"STR(QTY,4)", 4},
                            {"UPPER(NAME)", 10}, {"upper(name)+lower(city)", 18}, {"TRIM(NAME)+CITY", 18},
                            {"ALLTRIM(NAME)", 10}, {"SUBSTR(NAME,2,3)", 3}, {"SUBSTR(NAME,4)", 7},
                            {"SUBSTR(NAME,RECNO(),4)", 4}, {"SUBSTR(NAME,2,COUNT)", 9}, {"LEFT(NAME,4)", 4},
                            {"RIGHT(NAME,20)", 10}, {"DTOS(BORN)", 8}, {"'abc'", 3}, {"[a'b\"c]", 5},
                            {"IIF(ACTIVE,NAME,CITY)", 10}}},
      {ExprType::kNumeric, 8, {{"VALUE", 0}, {"COUNT", 0}, {"RATE", 0}, {"WEIGHT", 0}, {"PRICE", 0}, {"VAL(ID)", 0},
                               {"RECNO()", 0}, {"-QTY", 0}, {"QTY+1", 0}, {"BORN-BORN", 0}, {"1.5", 0}}},
      {ExprType::kInteger, 4, {{"QTY", 0}, {"(QTY)", 0}}},
      {ExprType::kDate, 8, {{"BORN", 0}, {"BORN+1", 0}, {"1+BORN", 0}}},
      {ExprType::kLogical, 1, {{"ACTIVE", 0}, {"DELETED()", 0}, {"NAME = 'X'", 0}, {".T.", 0}}},
  };
  for (const Group& g : groups) {
    for (const auto& [text, text_length] : g.texts) {
      auto e = Parse(text);
      ASSERT_NE(e, nullptr) << text;
      EXPECT_EQ(e->type(), g.type) << text;
      EXPECT_EQ(e->key_length(), g.key_length != 0 ? g.key_length : text_length) << text;
      EXPECT_EQ(e->source(), text);
    }
  }
}

TEST(ExprParse, BlanksAndCaseDoNotMatter) {
  const Rec r = Sample();
  EXPECT_EQ(Text("  upper ( name )  +  city ", r), "SMITH     Oslo    ");
  EXPECT_EQ(Text("Upper(Name)+City", r), "SMITH     Oslo    ");
  EXPECT_EQ(Text("\tSTR( VALUE , 5 , 1 )\n", r), "-12.5");
  // Four-letter abbreviations of function names.
  EXPECT_EQ(Text("UPPE(NAME)", r), "SMITH     ");
  EXPECT_EQ(Text("ALLT(CITY)", r), "Oslo    ");
  EXPECT_TRUE(Truth("!DELE()", r));
}

// ---------------------------------------------------------------------------------------------

TEST(ExprValues, FieldsOfEveryType) {
  Rec r = Sample();
  EXPECT_EQ(Text("NAME", r), "Smith     ");
  EXPECT_DOUBLE_EQ(Number("VALUE", r), -12.5);
  EXPECT_DOUBLE_EQ(Number("COUNT", r), 7);
  EXPECT_DOUBLE_EQ(Number("RATE", r), 0.125);
  EXPECT_DOUBLE_EQ(Number("QTY", r), -7);
  EXPECT_DOUBLE_EQ(Number("WEIGHT", r), 2.25);
  EXPECT_DOUBLE_EQ(Number("PRICE", r), 12.3456);
  EXPECT_DOUBLE_EQ(Number("BORN", r), 2447894);
  EXPECT_TRUE(Truth("ACTIVE", r));

  r.Set("VALUE", "").Set("COUNT", "   ").Set("RATE", "");
  EXPECT_EQ(Number("VALUE", r), 0) << "a blank number reads 0";
  EXPECT_EQ(Number("COUNT", r), 0);
  EXPECT_EQ(Number("RATE+COUNT", r), 0);
  r.Cur("PRICE", -5);
  EXPECT_DOUBLE_EQ(Number("PRICE", r), -0.0005);
  r.Bits("WEIGHT", 0x7FF8000000000001ull);  // a NaN on disk
  EXPECT_EQ(Number("WEIGHT", r), 0) << "NaN reads as 0";
}

TEST(ExprValues, LogicalFieldSpellings) {
  Rec r = Sample();
  for (const char* yes : {"T", "t", "Y", "y"}) {
    r.Set("ACTIVE", yes);
    EXPECT_TRUE(Truth("ACTIVE", r)) << yes;
    EXPECT_EQ(Text("ACTIVE", r), "T") << yes;
  }
  for (const char* no : {"F", "f", "N", "n", " ", "?"}) {
    r.Set("ACTIVE", no);
    EXPECT_FALSE(Truth("ACTIVE", r)) << no;
    EXPECT_EQ(Text("ACTIVE", r), "F") << no;
  }
}

TEST(ExprValues, EvalFormsOfOtherTypes) {
  const Rec r = Sample();
  EXPECT_EQ(Text("VALUE", r), "-12.5000") << "numbers as STR(n, 20, 4) trimmed";
  EXPECT_EQ(Text("QTY", r), "-7.0000");
  EXPECT_EQ(Text("BORN", r), "19900102");
  EXPECT_EQ(Text("VALUE > 0", r), "F");
  EXPECT_DOUBLE_EQ(Number("ID", r), 42.5) << "text reads as its leading number";
  EXPECT_EQ(Number("ACTIVE", r), 1);
  EXPECT_FALSE(Truth("NAME", r)) << "a non-logical expression is false";
  EXPECT_FALSE(Truth("COUNT", r));
}

TEST(ExprValues, Arithmetic) {
  Rec r = Sample();
  EXPECT_DOUBLE_EQ(Number("VALUE*2+1", r), -24);
  EXPECT_DOUBLE_EQ(Number("1+VALUE*2", r), -24) << "* binds tighter than +";
  EXPECT_DOUBLE_EQ(Number("(1+VALUE)*2", r), -23);
  EXPECT_DOUBLE_EQ(Number("COUNT/2", r), 3.5);
  EXPECT_DOUBLE_EQ(Number("10-COUNT-1", r), 2) << "left to right";
  EXPECT_DOUBLE_EQ(Number("-VALUE", r), 12.5);
  EXPECT_DOUBLE_EQ(Number("- -VALUE", r), -12.5);
  EXPECT_DOUBLE_EQ(Number(".5+QTY", r), -6.5);
  EXPECT_EQ(Number("COUNT/0", r), std::numeric_limits<double>::infinity());
  r.Set("COUNT", "0");
  EXPECT_EQ(Number("COUNT/0", r), 0) << "0/0 is 0, not NaN";
}

// ---------------------------------------------------------------------------------------------

TEST(ExprKeys, NumberEncodingBytes) {
  EXPECT_EQ(NumberKey(0), std::string("\x80\0\0\0\0\0\0\0", 8));
  EXPECT_EQ(NumberKey(-0.0), NumberKey(0)) << "-0 is +0";
  EXPECT_EQ(NumberKey(1), std::string("\xBF\xF0\0\0\0\0\0\0", 8));
  EXPECT_EQ(NumberKey(-1), std::string("\x40\x0F\xFF\xFF\xFF\xFF\xFF\xFF", 8));
  EXPECT_EQ(NumberKey(2447894), std::string("\xC1\x42\xAD\x0B\0\0\0\0", 8));

  unsigned char k[4];
  EncodeIntegerKey(1, k);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(k), 4), std::string("\x80\0\0\x01", 4));
  EncodeIntegerKey(-1, k);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(k), 4), "\x7F\xFF\xFF\xFF");
  EncodeIntegerKey(std::numeric_limits<std::int32_t>::min(), k);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(k), 4), std::string("\0\0\0\0", 4));
  EncodeIntegerKey(std::numeric_limits<std::int32_t>::max(), k);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(k), 4), "\xFF\xFF\xFF\xFF");
}

TEST(ExprKeys, NumberKeysSortAsValues) {
  using L = std::numeric_limits<double>;
  std::vector<double> values = {-L::infinity(), -L::max(), -1e300, -12345.678, -1, -0.5, -L::denorm_min(), -0.0, 0.0,
                                L::denorm_min(), L::min(), 1e-300, 0.1, 0.5, 1, 2447894, 1e15, 1e300, L::max(),
                                L::infinity()};
  std::mt19937_64 rng(20240611);
  std::uniform_real_distribution<double> small(-1000, 1000);
  for (int i = 0; i < 4000; ++i) {
    // Random bit patterns cover every exponent; NaNs are left out (no order to keep).
    const double any = std::bit_cast<double>(rng());
    if (!std::isnan(any)) values.push_back(any);
    values.push_back(small(rng));
    values.push_back(std::round(small(rng)));  // many equal values
  }
  std::sort(values.begin(), values.end());
  std::vector<std::string> keys;
  for (double v : values) keys.push_back(NumberKey(v));
  for (std::size_t i = 1; i < values.size(); ++i) {
    if (values[i - 1] < values[i]) {
      ASSERT_LT(keys[i - 1], keys[i]) << values[i - 1] << " vs " << values[i];
    } else {
      ASSERT_EQ(keys[i - 1], keys[i]) << values[i - 1] << " vs " << values[i];
    }
  }
  // Random pairs too, not only neighbours.
  std::uniform_int_distribution<std::size_t> pick(0, values.size() - 1);
  for (int i = 0; i < 20000; ++i) {
    const std::size_t a = pick(rng), b = pick(rng);
    const int by_key = std::memcmp(keys[a].data(), keys[b].data(), 8);
    const int by_value = values[a] < values[b] ? -1 : (values[a] > values[b] ? 1 : 0);
    ASSERT_EQ(by_key < 0 ? -1 : (by_key > 0 ? 1 : 0), by_value) << values[a] << " vs " << values[b];
  }
  // Decoding gives the value back (-0 comes back as +0).
  for (double v : values) {
    const double back = DecodeNumberKey(reinterpret_cast<const unsigned char*>(NumberKey(v).data()));
    ASSERT_EQ(back, v);
    ASSERT_FALSE(std::signbit(back) && back == 0);
  }
}

TEST(ExprKeys, FieldKeysThroughEvalKey) {
  auto value = Parse("VALUE");
  auto qty = Parse("QTY");
  auto neg = Parse("-VALUE");
  ASSERT_TRUE(value && qty && neg);
  const char* texts[] = {"-999.99", "-12.50", "-0.01", "", "0.00", "0.01", "3.25", "12345.67"};
  std::vector<std::string> keys, neg_keys;
  for (const char* t : texts) {
    Rec r(Table());
    r.Set("VALUE", t);
    keys.push_back(Key(*value, r));
    neg_keys.push_back(Key(*neg, r));
  }
  for (std::size_t i = 1; i < keys.size(); ++i) {
    EXPECT_LE(keys[i - 1], keys[i]) << texts[i - 1] << " vs " << texts[i];
    EXPECT_GE(neg_keys[i - 1], neg_keys[i]) << "-VALUE runs the other way";
  }
  EXPECT_EQ(keys[3], keys[4]) << "blank is 0";

  std::mt19937 rng(7);
  std::vector<std::int32_t> ints = {std::numeric_limits<std::int32_t>::min(), -1, 0, 1,
                                    std::numeric_limits<std::int32_t>::max()};
  for (int i = 0; i < 2000; ++i) ints.push_back(static_cast<std::int32_t>(rng()));
  std::sort(ints.begin(), ints.end());
  std::string prev;
  for (std::size_t i = 0; i < ints.size(); ++i) {
    Rec r(Table());
    r.Int("QTY", ints[i]);
    const std::string k = Key(*qty, r);
    if (i > 0) {
      if (ints[i - 1] < ints[i]) {
        ASSERT_LT(prev, k) << ints[i - 1] << " vs " << ints[i];
      } else {
        ASSERT_EQ(prev, k);
      }
    }
    prev = k;
  }
}

TEST(ExprKeys, TextKeysArePaddedToTheFixedLength) {
  Rec r = Sample();
  auto e = Parse("TRIM(NAME)+CITY");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(Key(*e, r), "SmithOslo         ") << "the trimmed name joins the city; blanks go to the end";
  auto minus = Parse("NAME-CITY");
  ASSERT_NE(minus, nullptr);
  EXPECT_EQ(Key(*minus, r), "SmithOslo         ");
  auto logical = Parse("ACTIVE .AND. VALUE < 0");
  ASSERT_NE(logical, nullptr);
  EXPECT_EQ(Key(*logical, r), "T");
  r.Set("ACTIVE", "F");
  EXPECT_EQ(Key(*logical, r), "F");
}

TEST(ExprKeys, EvalKeyKeepsTheCallersBuffer) {
  auto e = Parse("UPPER(NAME)+CITY");
  ASSERT_NE(e, nullptr);
  std::string key;
  key.reserve(64);
  const char* buffer = key.data();
  Rec a = Sample();
  Rec b = Sample();
  b.Set("NAME", "jones").Set("CITY", "Bergen");
  e->EvalKey(a.at(), &key);
  EXPECT_EQ(key, "SMITH     Oslo    ");
  e->EvalKey(b.at(), &key);
  EXPECT_EQ(key, "JONES     Bergen  ");
  EXPECT_EQ(key.data(), buffer) << "a buffer big enough is reused";
}

// ---------------------------------------------------------------------------------------------

TEST(ExprText, StrRoundsAndOverflows) {
  Rec r = Sample();
  r.Set("VALUE", "12.25");
  EXPECT_EQ(Text("STR(VALUE,5,1)", r), " 12.3") << "half away from zero";
  r.Set("VALUE", "-12.25");
  EXPECT_EQ(Text("STR(VALUE,5,1)", r), "-12.3");
  EXPECT_EQ(Text("STR(VALUE)", r), "       -12") << "width 10, no decimals by default";
  EXPECT_EQ(Text("STR(VALUE,9,3)", r), "  -12.250");
  EXPECT_EQ(Text("STR(0.5)", r), "         1");
  EXPECT_EQ(Text("STR(-0.4)", r), "         0") << "no negative zero";
  EXPECT_EQ(Text("STR(123456,5)", r), "*****");
  EXPECT_EQ(Text("STR(99999.5,5)", r), "*****") << "rounding up past the width";
  EXPECT_EQ(Text("STR(99999.4,5)", r), "99999");
  EXPECT_EQ(Text("STR(QTY,4)", r), "  -7");
  EXPECT_EQ(Text("STR(1/0,6)", r), "******");
  EXPECT_EQ(Text("ID+STR(VALUE,9,3)", r), "42.5ab  -12.250");
}

TEST(ExprText, Val) {
  Rec r = Sample();
  EXPECT_DOUBLE_EQ(Number("VAL(ID)", r), 42.5);
  r.Set("ID", "");
  EXPECT_EQ(Number("VAL(ID)", r), 0);
  r.Set("ID", "  -3");
  EXPECT_EQ(Number("VAL(ID)", r), -3);
  r.Set("ID", "x7");
  EXPECT_EQ(Number("VAL(ID)", r), 0);
  EXPECT_DOUBLE_EQ(Number("VAL(SUBSTR('ab17.5',3))", r), 17.5);
  EXPECT_DOUBLE_EQ(Number("VAL(STR(VALUE,8,2))*2", Sample()), -25);
  // Keys of VAL sort as numbers, not as text.
  auto e = Parse("VAL(ID)");
  ASSERT_NE(e, nullptr);
  Rec nine(Table()), ten(Table());
  nine.Set("ID", "9");
  ten.Set("ID", "10");
  EXPECT_LT(Key(*e, nine), Key(*e, ten));
}

TEST(ExprText, CaseAndTrimFunctions) {
  Rec r = Sample();
  r.Set("NAME", "  sMiTh\xE4");
  EXPECT_EQ(Text("UPPER(NAME)", r), "  SMITH\xE4  ") << "bytes beyond ASCII stay as they are";
  EXPECT_EQ(Text("LOWER(NAME)", r), "  smith\xE4  ");
  EXPECT_EQ(Text("TRIM(NAME)", r), "  sMiTh\xE4  ") << "alone, padded back to the width";
  EXPECT_EQ(Text("LTRIM(NAME)", r), "sMiTh\xE4    ");
  EXPECT_EQ(Text("ALLTRIM(NAME)+'|'", r), "sMiTh\xE4|    ");
  EXPECT_EQ(Text("RTRIM(NAME)+'|'", r), "  sMiTh\xE4|  ");
  EXPECT_EQ(Text("LTRIM(NAME)+'|'", r), "sMiTh\xE4  |  ");
  EXPECT_EQ(Text("UPPER(TRIM(NAME))+LOWER(CITY)", r), "  SMITH\xE4oslo      ");
  r.Set("NAME", "");
  EXPECT_EQ(Text("ALLTRIM(NAME)+CITY", r), "Oslo              ");
}

TEST(ExprText, SubstrLeftRight) {
  const Rec r = Sample();
  EXPECT_EQ(Text("SUBSTR(NAME,2,3)", r), "mit");
  EXPECT_EQ(Text("SUBSTR(NAME,4)", r), "th     ");
  EXPECT_EQ(Text("SUBSTR(NAME,0,2)", r), "Sm") << "a start below 1 counts as 1";
  EXPECT_EQ(Text("SUBSTR(NAME,9,5)", r), "  ") << "cut at the end of the text";
  EXPECT_EQ(Text("SUBSTR(NAME,RECNO(),2)", r, 3), "it");
  EXPECT_EQ(Text("SUBSTR(NAME,RECNO(),2)", r, 99), "  ") << "a start past the end gives nothing";
  EXPECT_EQ(Text("SUBSTR(TRIM(NAME)+CITY,4,4)", r), "thOs");
  EXPECT_EQ(Text("SUBSTR(NAME,2,COUNT)", r), "mith     ");
  EXPECT_EQ(Text("LEFT(NAME,3)", r), "Smi");
  EXPECT_EQ(Text("LEFT(NAME,-1)", r), "");
  EXPECT_EQ(Text("RIGHT(NAME,3)", r), "   ") << "a field keeps its trailing blanks";
  EXPECT_EQ(Text("RIGHT(TRIM(NAME),3)", r), "ith");
  EXPECT_EQ(Text("RIGHT(NAME,20)", r), "Smith     ");
}

TEST(ExprText, RecnoAndIif) {
  const Rec r = Sample();
  auto e = Parse("RECNO()");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->EvalNumber(r.at(17)), 17);
  EXPECT_LT(Key(*e, r, 2), Key(*e, r, 10));
  EXPECT_LT(Key(*e, r, 10), Key(*e, r, 1000000));
  EXPECT_EQ(Text("STR(RECNO(),7)", r, 4321), "   4321");
  EXPECT_EQ(Text("IIF(ACTIVE,NAME,CITY)", r), "Smith     ");
  EXPECT_EQ(Text("IIF(.NOT. ACTIVE,NAME,CITY)", r), "Oslo      ");
  EXPECT_EQ(Number("IIF(VALUE>0,1,-1)", r), -1);
  EXPECT_TRUE(Truth("IIF(ACTIVE,VALUE<0,.F.)", r));
}

// ---------------------------------------------------------------------------------------------

TEST(ExprFilter, DeletedInEverySpelling) {
  const Rec live = Sample();
  Rec gone = Sample();
  gone.Delete();
  EXPECT_FALSE(Truth("DELETED()", live));
  EXPECT_TRUE(Truth("DELETED()", gone));
  for (const char* f : {".NOT. DELETED()", ".NOT.DELETED()", "!DELETED()", "! DELETED()", ".not. deleted()",
                        "!deleted()", "( .NOT. DELETED() )"}) {
    EXPECT_TRUE(Truth(f, live)) << f;
    EXPECT_FALSE(Truth(f, gone)) << f;
  }
  for (const char* f : {"(VALUE < 0).AND.(.NOT. DELETED())", "VALUE<0.AND.!DELETED()", "VALUE < 0 .and. ! deleted()"}) {
    EXPECT_TRUE(Truth(f, live)) << f;
    EXPECT_FALSE(Truth(f, gone)) << f;
  }
  auto e = Parse("!DELETED()");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->type(), ExprType::kLogical);
}

TEST(ExprFilter, AndOrNotPrecedence) {
  const Rec r = Sample();  // ACTIVE true, VALUE -12.5, COUNT 7
  for (const char* t : {".T. .AND. .T.", ".F. .OR. .T.", ".y. .and. .Y.", "!!ACTIVE", ".NOT..NOT. ACTIVE",
                        ".T. .OR. .F. .AND. .F.",  // .AND. binds tighter than .OR.
                        ".NOT. .T. .OR. .T.",      // .NOT. binds tighter than .OR.
                        ".NOT. VALUE > 0",         // and looser than a comparison
                        "ACTIVE .AND. VALUE < 0 .AND. COUNT = 7", "ACTIVE .AND. VALUE > 0 .OR. COUNT = 7"})
    EXPECT_TRUE(Truth(t, r)) << t;
  for (const char* t : {".T. .AND. .F.", ".F. .OR. .F.", ".n. .or. .N.", "(.T. .OR. .F.) .AND. .F.",
                        ".NOT. (.T. .OR. .T.)", "ACTIVE .AND. (VALUE > 0 .OR. COUNT = 8)"})
    EXPECT_FALSE(Truth(t, r)) << t;
}

TEST(ExprFilter, Comparisons) {
  const Rec r = Sample();  // NAME "Smith     ", CITY "Oslo    ", BORN 1990-01-02, DUE 1990-01-12
  // Text: = compares up to the right side's length, a shorter left side counting as blank-padded;
  // == compares exactly, trailing blanks included.
  for (const char* t : {"NAME = 'Smi'", "NAME = 'Smith'", "NAME == 'Smith     '", "TRIM(NAME) == 'Smith'",
                        "NAME = ''", "'ab' = 'ab   '", "NAME # 'X'", "NAME != 'X'", "NAME < 'T'", "NAME >= 'Sm'",
                        "NAME <= 'Sm'", "NAME > 'Sa'", "UPPER(NAME) = 'SMITH'", "PTYPE+TEXTREF = 'PXT0001'",
                        "DTOS(BORN) = '1990'"})
    EXPECT_TRUE(Truth(t, r)) << t;
  for (const char* t : {"NAME == 'Smi'", "NAME == 'Smith'", "'Smi' = NAME", "'ab' = 'abc'", "'ab' == 'ab '",
                        "NAME <> 'Smi'", "NAME > 'Sm'", "NAME < CITY", "NAME = CITY"})
    EXPECT_FALSE(Truth(t, r)) << t;
  // Numbers (I fields among them), dates, logicals.
  for (const char* t : {"VALUE = -12.5", "VALUE == -12.5", "VALUE < 0", "VALUE >= -12.5", "QTY = -7", "BORN < DUE",
                        "BORN = DUE - 10", "ACTIVE = .T.", "ACTIVE <> .F.", ".F. < .T."})
    EXPECT_TRUE(Truth(t, r)) << t;
  for (const char* t : {"QTY < VALUE", "COUNT <> 7", "BORN >= DUE", "ACTIVE = .F."}) EXPECT_FALSE(Truth(t, r)) << t;
}

// ---------------------------------------------------------------------------------------------

TEST(ExprDate, JulianDayNumbers) {
  EXPECT_EQ(DateToJulian("19900102"), 2447894);
  EXPECT_EQ(DateToJulian("00010101"), 1721426);
  EXPECT_EQ(DateToJulian("99991231"), 5373484);
  EXPECT_EQ(DateToJulian("19700101"), 2440588);
  EXPECT_EQ(DateToJulian("20000229"), 2451604);
  EXPECT_EQ(DateToJulian("20000301"), 2451605);
  EXPECT_EQ(DateToJulian("15821015"), 2299161);
  EXPECT_EQ(DateToJulian("15821004"), 2299150) << "proleptic: no calendar switch";
  EXPECT_EQ(JulianToDate(2447894), "19900102");
  EXPECT_EQ(JulianToDate(1721426), "00010101");
  EXPECT_EQ(JulianToDate(5373484), "99991231");
  EXPECT_EQ(JulianToDate(0), "        ");
  EXPECT_EQ(JulianToDate(-5), "        ");
  EXPECT_EQ(JulianToDate(1721425), "        ") << "before 0001-01-01";
  EXPECT_EQ(JulianToDate(5373485), "        ") << "after 9999-12-31";
  for (const char* bad : {"        ", "", "1990010", "199001021", "20230230", "19000229", "20231301", "20230100",
                          "00000101", "2023ab01", "-1990010", " 1990010"})
    EXPECT_EQ(DateToJulian(bad), 0) << "'" << bad << "'";
}

TEST(ExprDate, EveryDayRoundTripsAndSorts) {
  std::string prev;
  for (long j = 1721426; j <= 5373484; ++j) {
    const std::string d = JulianToDate(j);
    ASSERT_EQ(DateToJulian(d), j) << d;
    if (!prev.empty()) {
      ASSERT_LT(prev, d) << j;
    }
    prev = d;
  }
}

TEST(ExprDate, BlankDatesSortFirst) {
  auto e = Parse("BORN");
  ASSERT_NE(e, nullptr);
  const char* dates[] = {"", "00010101", "00010102", "18991231", "19900102", "19900103", "20240229", "99991231"};
  std::vector<std::string> keys;
  for (const char* d : dates) {
    Rec r(Table());
    r.Set("BORN", d);
    keys.push_back(Key(*e, r));
  }
  for (std::size_t i = 1; i < keys.size(); ++i) EXPECT_LT(keys[i - 1], keys[i]) << dates[i - 1] << " vs " << dates[i];
  EXPECT_EQ(keys[0], NumberKey(0));
  Rec nonsense(Table());
  nonsense.Set("BORN", "2023ab01");
  EXPECT_EQ(Key(*e, nonsense), keys[0]) << "a date that is no date keys as blank";
  EXPECT_EQ(e->EvalText(nonsense.at()), "        ");
  EXPECT_EQ(e->EvalNumber(nonsense.at()), 0);
}

TEST(ExprDate, DateArithmeticAndDtos) {
  Rec r = Sample();  // BORN 1990-01-02, DUE 1990-01-12
  EXPECT_EQ(Text("DTOS(BORN)", r), "19900102");
  EXPECT_EQ(Text("BORN+30", r), "19900201");
  EXPECT_EQ(Text("30+BORN", r), "19900201");
  EXPECT_EQ(Text("BORN-2", r), "19891231");
  EXPECT_EQ(Text("DTOS(BORN+365)", r), "19910102");
  EXPECT_EQ(Number("DUE-BORN", r), 10);
  EXPECT_EQ(Text("BORN-1000000000", r), "        ") << "out of the calendar is blank";
  EXPECT_EQ(Text("DTOS(BORN)+NAME", r), "19900102Smith     ");
  r.Set("BORN", "");
  EXPECT_EQ(Text("DTOS(BORN)", r), "        ");
  EXPECT_EQ(Text("BORN+1", r), "        ") << "a blank date stays blank";
  EXPECT_EQ(Number("DUE-BORN", r), 0);
}

// ---------------------------------------------------------------------------------------------

TEST(ExprErrors, BadExpressionsNameThePosition) {
  struct Case {
    std::string text;
    const char* what;  // a part of the message
    int at;            // 1-based position the message names
  };
  const Case cases[] = {
      {"", "empty expression", 1}, {"   ", "empty expression", 4}, {"FOO", "unknown field 'FOO'", 1},
      {"UPPER(FOO)", "unknown field 'FOO'", 7}, {"NAME+foo", "unknown field 'FOO'", 6},
      {"FOO(NAME)", "unknown function 'FOO'", 1}, {"UPP(NAME)", "unknown function 'UPP'", 1},
      {"UPPER(NAME", "expected ')'", 11}, {"VAL(ID", "expected ')'", 7}, {"(NAME", "expected ')'", 6},
      {"((NAME)", "expected ')'", 8}, {"NAME)", "unexpected ')'", 5}, {"NAME NAME", "unexpected 'NAME'", 6},
      {"NAME 'x'", "unexpected", 6}, {"VALUE 1", "unexpected '1'", 7},
      {"UPPER(VALUE)", "UPPER needs text as argument 1, got a number", 7},
      {"STR(NAME)", "STR needs a number as argument 1, got text", 5}, {"DTOS(NAME)", "DTOS needs a date", 6},
      {"SUBSTR(NAME,'1')", "SUBSTR needs a number as argument 2", 13}, {"IIF(NAME,1,2)", "IIF needs a logical", 5},
      {"IIF(ACTIVE,NAME,1)", "one type", 17}, {"NAME + VALUE", "cannot add a number to text", 6},
      {"VALUE - NAME", "cannot subtract text from a number", 7}, {"BORN + BORN", "cannot add a date to a date", 6},
      {"VALUE * NAME", "'*' needs numbers", 7}, {"BORN / 2", "'/' needs numbers", 6},
      {"-NAME", "unary '-' needs a number", 1}, {"NAME = 5", "cannot compare text with a number", 6},
      {"BORN = VALUE", "cannot compare a date with a number", 6},
      {".NOT. NAME", ".NOT. needs a logical value, got text", 7},
      {"NAME .AND. .T.", ".AND. needs a logical value", 1},
      {".T. .OR. 1", ".OR. needs a logical value, got a number", 10}, {"NOTES", "memo field 'NOTES'", 1},
      {"UPPER(NOTES)", "memo field 'NOTES'", 7}, {"STAMP", "field 'STAMP' of type 'T' cannot be used", 1},
      {"NAME = 'abc", "unterminated text literal", 8}, {"[abc", "unterminated text literal", 1},
      {"STR(VALUE, COUNT)", "STR needs a number literal as its width", 12},
      {"STR(VALUE, 0)", "width must be from 1 to 255", 12}, {"STR(VALUE, 256)", "width must be from 1 to 255", 12},
      {"STR(VALUE, 5, -1)", "decimals must be from 0 to 15", 15},
      {"SUBSTR(NAME)", "SUBSTR needs 2 arguments, got 1", 12}, {"IIF(.T.,1)", "IIF needs 3 arguments, got 2", 10},
      {"RECNO(1)", "RECNO takes at most 0 arguments", 7}, {"UPPER(NAME, CITY)", "UPPER takes at most 1 argument", 13},
      {"UPPER()", "UPPER needs 1 argument, got 0", 7}, {"SUBSTR(NAME,)", "expected a value", 13},
      {"VALUE +", "expected a value, found end of expression", 8}, {"* VALUE", "expected a value, found '*'", 1},
      {".XOR. .T.", "unknown operator '.XOR.'", 1}, {".AND", "unknown operator '.AND'", 1},
      {"1.", "unknown operator '.'", 2}, {"NAME $ 'x'", "unexpected character '$'", 6},
      {std::string("NAME\x01"), "unexpected byte 0x01", 5}, {std::string("NA\0ME", 5), "unexpected byte 0x00", 3},
      {std::string(70, '(') + "NAME" + std::string(70, ')'), "nested too deeply", 65},
      {std::string(80, '-') + "1", "nested too deeply", 65},
  };
  for (const Case& c : cases) {
    std::unique_ptr<Expr> e;
    const Status s = Expr::Parse(c.text, Table().fields(), &e);
    EXPECT_EQ(s.kind(), Status::Kind::kInvalidArgument) << c.text << ": " << s.ToString();
    EXPECT_NE(s.message().find(c.what), std::string::npos) << c.text << ": " << s.message();
    const std::string at = " at " + std::to_string(c.at) + " in '";
    EXPECT_NE(s.message().find(at), std::string::npos) << c.text << ": " << s.message() << " (want" << at << ")";
    EXPECT_EQ(e, nullptr) << c.text;
  }
}

TEST(ExprErrors, LongChainsAreRefusedNotRecursedInto) {
  std::string chain = "NAME";
  for (int i = 0; i < 400; ++i) chain += "+NAME";
  std::unique_ptr<Expr> e;
  Status s = Expr::Parse(chain, Table().fields(), &e);
  EXPECT_EQ(s.kind(), Status::Kind::kInvalidArgument);
  EXPECT_NE(s.message().find("nested too deeply"), std::string::npos) << s.message();

  std::string ok = "NAME";
  for (int i = 0; i < 100; ++i) ok += "+NAME";
  s = Expr::Parse(ok, Table().fields(), &e);
  ASSERT_TRUE(s.ok()) << s.ToString();
  EXPECT_EQ(e->key_length(), 1010u);
}

TEST(ExprErrors, BinaryFieldsOfTheWrongWidth) {
  Layout l;
  l.Add("QTY", 'I', 2).Add("W", 'B', 4).Add("OK", 'I', 4);
  std::unique_ptr<Expr> e;
  Status s = Expr::Parse("QTY", l.fields(), &e);
  EXPECT_EQ(s.kind(), Status::Kind::kInvalidArgument);
  EXPECT_NE(s.message().find("has width 2, not 4"), std::string::npos) << s.message();
  s = Expr::Parse("OK+W", l.fields(), &e);
  EXPECT_EQ(s.kind(), Status::Kind::kInvalidArgument);
  EXPECT_NE(s.message().find(" at 4 "), std::string::npos) << s.message();
  EXPECT_TRUE(Expr::Parse("OK", l.fields(), &e).ok());
}

TEST(ExprErrors, FailureClearsTheOutput) {
  std::unique_ptr<Expr> e = Parse("NAME");
  ASSERT_NE(e, nullptr);
  EXPECT_FALSE(Expr::Parse("NAME +", Table().fields(), &e).ok());
  EXPECT_EQ(e, nullptr);
}

}  // namespace
}  // namespace kvd::engine
