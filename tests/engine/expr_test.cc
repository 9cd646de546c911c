// Key expressions and filters, parsed against a field list and evaluated on records built by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "engine/codec.h"
#include "engine/expr.h"

namespace kvd::engine {
namespace {

using namespace std::string_literals;

// The test table, laid out as the table stores it (deletion byte at 0). LONGFIELDN stands for a
// long name cut to ten characters; SHORTI and SHORTB are binary fields of the wrong width.
const std::vector<FieldLayout>& Fields() {
  static const std::vector<FieldLayout> fields = [] {
    std::vector<FieldLayout> f = {
        {"NAME", 'C', 10},  {"CITY", 'C', 8},   {"VALUE", 'N', 8, 2}, {"COUNT", 'N', 5},      {"RATE", 'F', 10, 3},
        {"BORN", 'D', 8},   {"DUE", 'D', 8},    {"ACTIVE", 'L', 1},   {"QTY", 'I', 4},        {"WEIGHT", 'B', 8},
        {"PRICE", 'Y', 8},  {"NOTES", 'M', 10}, {"ID", 'C', 6},       {"PTYPE", 'C', 2},      {"TEXTREF", 'C', 10},
        {"STAMP", 'T', 8},  {"SHORTI", 'I', 2}, {"SHORTB", 'B', 4},   {"LONGFIELDN", 'C', 4}};
    std::uint32_t at = 1;
    for (FieldLayout& x : f) {
      x.offset = at;
      at += x.len;
    }
    return f;
  }();
  return fields;
}

constexpr char kSample[] =
    "NAME=Smith;CITY=Oslo;VALUE=-12.50;COUNT=7;RATE=0.125;BORN=19900102;DUE=19900112;ACTIVE=T;QTY=-7;"
    "WEIGHT=2.25;PRICE=123456;ID=42.5ab;PTYPE=PX;TEXTREF=T0001";

// The sample record with the fields in `changes` set over it ("NAME=x;QTY=-7", '*' marks it deleted).
// Text goes left, N and F right, both blank-padded; I, B and Y (in ten-thousandths) are binary, and
// the sample sets every binary field an expression reads.
std::string Record(const std::string& changes = "") {
  std::string rec(Fields().back().offset + Fields().back().len, ' ');
  std::istringstream items(kSample + (";" + changes));
  for (std::string item; std::getline(items, item, ';');) {
    const std::size_t eq = item.find('=');
    if (item == "*") rec[0] = '*';
    if (eq == std::string::npos) continue;
    const std::string name = item.substr(0, eq), text = item.substr(eq + 1);
    const auto f = std::find_if(Fields().begin(), Fields().end(), [&](auto& x) { return x.name == name; });
    if (f == Fields().end()) {
      ADD_FAILURE() << "no field " << name;
      continue;
    }
    char* p = &rec[f->offset];
    if (f->type == 'I' || f->type == 'B' || f->type == 'Y') {
      const auto v = f->type == 'B' ? std::bit_cast<std::uint64_t>(std::strtod(text.c_str(), nullptr))
                                    : static_cast<std::uint64_t>(std::strtoll(text.c_str(), nullptr, 10));
      PutLE32(p, static_cast<std::uint32_t>(v));
      if (f->len == 8) PutLE32(p + 4, static_cast<std::uint32_t>(v >> 32));
    } else {
      EXPECT_LE(text.size(), f->len) << item;
      const std::size_t n = std::min<std::size_t>(text.size(), f->len);
      std::memset(p, ' ', f->len);
      text.copy(p + (f->type == 'N' || f->type == 'F' ? f->len - n : 0), n);
    }
  }
  return rec;
}

std::unique_ptr<Expr> Parse(const std::string& text) {
  std::unique_ptr<Expr> e;
  const Status s = Expr::Parse(text, Fields(), &e);
  EXPECT_TRUE(s.ok()) << text << ": " << s.ToString();
  return e;
}

std::string Key(const Expr& e, const std::string& rec, std::uint32_t recno = 1) {
  std::string k;
  e.EvalKey({rec.data(), recno}, &k);
  EXPECT_EQ(k.size(), e.key_length()) << e.source();
  return k;
}

std::string NumberKey(double v) {
  unsigned char k[8];
  EncodeNumberKey(v, k);
  return std::string(reinterpret_cast<char*>(k), 8);
}

// One case: the form asked for ('C' EvalText, 'N' EvalNumber, 'L' EvalLogical, 'K' EvalKey), the
// expression, the answer, the fields set over the sample record, the record number.
struct Row {
  char form;
  const char* expr;
  const char* want;
  const char* set = "";
  std::uint32_t recno = 1;
};

void Check(std::initializer_list<Row> rows) {
  for (const Row& c : rows) {
    const std::string where = c.form + " "s + c.expr + " {" + c.set + "} #" + std::to_string(c.recno);
    auto e = Parse(c.expr);
    if (e == nullptr) continue;
    const std::string rec = Record(c.set);
    const ExprRecord at{rec.data(), c.recno};
    switch (c.form) {
      case 'C': EXPECT_EQ(e->EvalText(at), c.want) << where; break;
      case 'N': EXPECT_DOUBLE_EQ(e->EvalNumber(at), std::strtod(c.want, nullptr)) << where; break;
      case 'L': EXPECT_EQ(e->EvalLogical(at), *c.want == 'T') << where; break;
      case 'K': EXPECT_EQ(Key(*e, rec, c.recno), c.want) << where; break;
      default: ADD_FAILURE() << where;
    }
  }
}

// Every filter in `exprs` is `want` on the sample record with `set` applied.
void Holds(bool want, std::initializer_list<const char*> exprs, const char* set = "") {
  for (const char* x : exprs) Check({{'L', x, want ? "T" : "F", set}});
}

// The keys of `expr` rise strictly as `field` takes each of `texts` in turn.
void Ascending(const char* expr, const std::string& field, const std::vector<std::string>& texts) {
  auto e = Parse(expr);
  ASSERT_NE(e, nullptr);
  for (std::size_t i = 1; i < texts.size(); ++i)
    ASSERT_LT(Key(*e, Record(field + "=" + texts[i - 1])), Key(*e, Record(field + "=" + texts[i])))
        << expr << ": '" << texts[i - 1] << "' vs '" << texts[i] << "'";
}

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
                            {"IIF(ACTIVE,NAME,CITY)", 10}, {"LONGFIELDNAME", 4}}},
      {ExprType::kNumeric, 8, {{"VALUE", 0}, {"COUNT", 0}, {"RATE", 0}, {"WEIGHT", 0}, {"PRICE", 0}, {"VAL(ID)", 0},
                               {"RECNO()", 0}, {"-QTY", 0}, {"QTY+1", 0}, {"BORN-BORN", 0}, {"1.5", 0}}},
      {ExprType::kInteger, 4, {{"QTY", 0}, {"(QTY)", 0}}},
      {ExprType::kDate, 8, {{"BORN", 0}, {"BORN+1", 0}, {"1+BORN", 0}}},
      {ExprType::kLogical, 1, {{"ACTIVE", 0}, {"DELETED()", 0}, {"!DELETED()", 0}, {"NAME = 'X'", 0}, {".T.", 0}}},
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
  std::string chain = "NAME";
  for (int i = 0; i < 100; ++i) chain += "+NAME";
  auto e = Parse(chain);  // 101 terms are within the nesting limit
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->key_length(), 1010u);
}

TEST(ExprEval, FieldsFormsAndArithmetic) {
  Check({
      // Every field type; blanks and case do not matter; a function goes by four letters or more.
      {'C', "NAME", "Smith     "}, {'N', "VALUE", "-12.5"}, {'N', "COUNT", "7"}, {'N', "RATE", "0.125"},
      {'N', "QTY", "-7"}, {'N', "WEIGHT", "2.25"}, {'N', "PRICE", "12.3456"}, {'N', "BORN", "2447894"},
      {'L', "ACTIVE", "T"}, {'C', "  upper ( name )  +  city ", "SMITH     Oslo    "},
      {'C', "Upper(Name)+City", "SMITH     Oslo    "}, {'C', "\tSTR( VALUE , 5 , 1 )\n", "-12.5"},
      {'C', "UPPE(NAME)", "SMITH     "}, {'C', "ALLT(CITY)", "Oslo    "}, {'L', "!DELE()", "T"},
      // A blank number, and a NaN in a binary field, read 0.
      {'N', "VALUE", "0", "VALUE="}, {'N', "COUNT", "0", "COUNT=   "}, {'N', "RATE+COUNT", "0", "RATE=;COUNT="},
      {'N', "PRICE", "-0.0005", "PRICE=-5"}, {'N', "WEIGHT", "0", "WEIGHT=nan"},
      // Other forms: a number as STR(n, 20, 4) trimmed, text as its leading number; a non-logical is false.
      {'C', "VALUE", "-12.5000"}, {'C', "QTY", "-7.0000"}, {'C', "BORN", "19900102"}, {'C', "VALUE > 0", "F"},
      {'N', "ID", "42.5"}, {'N', "ACTIVE", "1"}, {'L', "NAME", "F"}, {'L', "COUNT", "F"},
      // * before +, left to right; n/0 is infinite, but 0/0 is 0, not NaN.
      {'N', "VALUE*2+1", "-24"}, {'N', "1+VALUE*2", "-24"}, {'N', "(1+VALUE)*2", "-23"}, {'N', "COUNT/2", "3.5"},
      {'N', "10-COUNT-1", "2"}, {'N', "-VALUE", "12.5"}, {'N', "- -VALUE", "-12.5"}, {'N', ".5+QTY", "-6.5"},
      {'N', "COUNT/0", "inf"}, {'N', "COUNT/0", "0", "COUNT=0"},
  });
  for (const std::string v : {"T", "t", "Y", "y", "F", "f", "N", "n", " ", "?"}) {
    const std::string set = "ACTIVE=" + v;
    const char* want = "TtYy"s.find(v) != std::string::npos ? "T" : "F";
    Check({{'L', "ACTIVE", want, set.c_str()}, {'C', "ACTIVE", want, set.c_str()}});
  }
}

TEST(ExprEval, Functions) {
  const char* odd = "NAME=  sMiTh\xE4";
  Check({
      // STR: width 10 and no decimals unless given, half away from zero, no negative zero, '*' when too wide.
      {'C', "STR(VALUE,5,1)", " 12.3", "VALUE=12.25"}, {'C', "STR(VALUE,5,1)", "-12.3", "VALUE=-12.25"},
      {'C', "STR(VALUE)", "       -12", "VALUE=-12.25"}, {'C', "STR(VALUE,9,3)", "  -12.250", "VALUE=-12.25"},
      {'C', "ID+STR(VALUE,9,3)", "42.5ab  -12.250", "VALUE=-12.25"}, {'C', "STR(0.5)", "         1"},
      {'C', "STR(-0.4)", "         0"}, {'C', "STR(123456,5)", "*****"}, {'C', "STR(99999.5,5)", "*****"},
      {'C', "STR(99999.4,5)", "99999"}, {'C', "STR(QTY,4)", "  -7"}, {'C', "STR(1/0,6)", "******"},
      {'C', "STR(RECNO(),7)", "   4321", "", 4321},
      {'N', "VAL(ID)", "42.5"}, {'N', "VAL(ID)", "0", "ID="}, {'N', "VAL(ID)", "-3", "ID=  -3"},
      {'N', "VAL(ID)", "0", "ID=x7"}, {'N', "VAL(SUBSTR('ab17.5',3))", "17.5"}, {'N', "VAL(STR(VALUE,8,2))*2", "-25"},
      // Bytes beyond ASCII stay as they are; TRIM alone is padded back to the width.
      {'C', "UPPER(NAME)", "  SMITH\xE4  ", odd}, {'C', "LOWER(NAME)", "  smith\xE4  ", odd},
      {'C', "TRIM(NAME)", "  sMiTh\xE4  ", odd}, {'C', "LTRIM(NAME)", "sMiTh\xE4    ", odd},
      {'C', "ALLTRIM(NAME)+'|'", "sMiTh\xE4|    ", odd}, {'C', "RTRIM(NAME)+'|'", "  sMiTh\xE4|  ", odd},
      {'C', "LTRIM(NAME)+'|'", "sMiTh\xE4  |  ", odd}, {'C', "ALLTRIM(NAME)+CITY", "Oslo              ", "NAME="},
      {'C', "UPPER(TRIM(NAME))+LOWER(CITY)", "  SMITH\xE4oslo      ", odd},
      // A start below 1 counts as 1, one past the end gives nothing; a field keeps its trailing blanks.
      {'C', "SUBSTR(NAME,2,3)", "mit"}, {'C', "SUBSTR(NAME,4)", "th     "}, {'C', "SUBSTR(NAME,0,2)", "Sm"},
      {'C', "SUBSTR(NAME,9,5)", "  "}, {'C', "SUBSTR(NAME,RECNO(),2)", "it", "", 3},
      {'C', "SUBSTR(NAME,RECNO(),2)", "  ", "", 99}, {'C', "SUBSTR(TRIM(NAME)+CITY,4,4)", "thOs"},
      {'C', "SUBSTR(NAME,2,COUNT)", "mith     "}, {'C', "LEFT(NAME,3)", "Smi"}, {'C', "LEFT(NAME,-1)", ""},
      {'C', "RIGHT(NAME,3)", "   "}, {'C', "RIGHT(TRIM(NAME),3)", "ith"}, {'C', "RIGHT(NAME,20)", "Smith     "},
      {'N', "RECNO()", "17", "", 17}, {'C', "IIF(ACTIVE,NAME,CITY)", "Smith     "},
      {'C', "IIF(.NOT. ACTIVE,NAME,CITY)", "Oslo      "}, {'N', "IIF(VALUE>0,1,-1)", "-1"},
      {'L', "IIF(ACTIVE,VALUE<0,.F.)", "T"},
      // Dates: out of the calendar is blank; a blank date, or one that is no date, stays blank and counts 0.
      {'C', "DTOS(BORN)", "19900102"}, {'C', "BORN+30", "19900201"}, {'C', "30+BORN", "19900201"},
      {'C', "BORN-2", "19891231"}, {'C', "DTOS(BORN+365)", "19910102"}, {'N', "DUE-BORN", "10"},
      {'C', "BORN-1000000000", "        "}, {'C', "DTOS(BORN)+NAME", "19900102Smith     "},
      {'C', "DTOS(BORN)", "        ", "BORN="}, {'C', "BORN+1", "        ", "BORN="}, {'N', "DUE-BORN", "0", "BORN="},
      {'C', "BORN", "        ", "BORN=2023ab01"}, {'N', "BORN", "0", "BORN=2023ab01"},
  });
}

TEST(ExprFilter, DeletedAndLogic) {
  const auto not_deleted = {".NOT. DELETED()", ".NOT.DELETED()", "!DELETED()", "! DELETED()", ".not. deleted()",
                            "!deleted()", "( .NOT. DELETED() )", "(VALUE < 0).AND.(.NOT. DELETED())",
                            "VALUE<0.AND.!DELETED()", "VALUE < 0 .and. ! deleted()"};
  Holds(true, not_deleted);
  Holds(false, not_deleted, "*");
  Holds(false, {"DELETED()"});
  Holds(true, {"DELETED()"}, "*");
  // .AND. binds tighter than .OR., .NOT. tighter than .OR. but looser than a comparison.
  Holds(true, {".T. .AND. .T.", ".F. .OR. .T.", ".y. .and. .Y.", "!!ACTIVE", ".NOT..NOT. ACTIVE",
               ".T. .OR. .F. .AND. .F.", ".NOT. .T. .OR. .T.", ".NOT. VALUE > 0",
               "ACTIVE .AND. VALUE < 0 .AND. COUNT = 7", "ACTIVE .AND. VALUE > 0 .OR. COUNT = 7"});
  Holds(false, {".T. .AND. .F.", ".F. .OR. .F.", ".n. .or. .N.", "(.T. .OR. .F.) .AND. .F.", ".NOT. (.T. .OR. .T.)",
                "ACTIVE .AND. (VALUE > 0 .OR. COUNT = 8)"});
}

TEST(ExprFilter, Comparisons) {
  // Text: = compares up to the right side's length, a shorter left side counting as blank-padded;
  // == compares exactly, trailing blanks included.
  Holds(true, {"NAME = 'Smi'", "NAME = 'Smith'", "NAME == 'Smith     '", "TRIM(NAME) == 'Smith'", "NAME = ''",
               "'ab' = 'ab   '", "NAME # 'X'", "NAME != 'X'", "NAME < 'T'", "NAME >= 'Sm'", "NAME <= 'Sm'",
               "NAME > 'Sa'", "UPPER(NAME) = 'SMITH'", "PTYPE+TEXTREF = 'PXT0001'", "DTOS(BORN) = '1990'"});
  Holds(false, {"NAME == 'Smi'", "NAME == 'Smith'", "'Smi' = NAME", "'ab' = 'abc'", "'ab' == 'ab '", "NAME <> 'Smi'",
                "NAME > 'Sm'", "NAME < CITY", "NAME = CITY"});
  // Numbers (I fields among them), dates, logicals.
  Holds(true, {"VALUE = -12.5", "VALUE == -12.5", "VALUE < 0", "VALUE >= -12.5", "QTY = -7", "BORN < DUE",
               "BORN = DUE - 10", "ACTIVE = .T.", "ACTIVE <> .F.", ".F. < .T."});
  Holds(false, {"QTY < VALUE", "COUNT <> 7", "BORN >= DUE", "ACTIVE = .F."});
}

TEST(ExprKeys, NumberAndIntegerKeyBytes) {
  const std::pair<double, std::string> numbers[] = {
      {0, "\x80\0\0\0\0\0\0\0"s}, {-0.0, "\x80\0\0\0\0\0\0\0"s}, {1, "\xBF\xF0\0\0\0\0\0\0"s},
      {-1, "\x40\x0F\xFF\xFF\xFF\xFF\xFF\xFF"s}, {2447894, "\xC1\x42\xAD\x0B\0\0\0\0"s}};
  for (const auto& [v, bytes] : numbers) EXPECT_EQ(NumberKey(v), bytes) << v;
  using I = std::numeric_limits<std::int32_t>;
  const std::pair<std::int32_t, std::string> ints[] = {
      {1, "\x80\0\0\x01"s}, {-1, "\x7F\xFF\xFF\xFF"s}, {I::min(), "\0\0\0\0"s}, {I::max(), "\xFF\xFF\xFF\xFF"s}};
  for (const auto& [v, bytes] : ints) {
    unsigned char k[4];
    EncodeIntegerKey(v, k);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(k), 4), bytes) << v;
  }
}

TEST(ExprKeys, NumberKeysSortAsValuesAndDecode) {
  using L = std::numeric_limits<double>;
  std::vector<double> v = {-L::infinity(), -L::max(), -1e300, -12345.678, -1, -0.5, -L::denorm_min(), -0.0, 0.0,
                           L::denorm_min(), L::min(), 1e-300, 0.1, 0.5, 1, 2447894, 1e15, 1e300, L::max(),
                           L::infinity()};
  std::mt19937_64 rng(20240611);
  std::uniform_real_distribution<double> small(-1000, 1000);
  for (int i = 0; i < 4000; ++i) {
    // Random bit patterns cover every exponent; NaNs are left out (no order to keep).
    if (const double any = std::bit_cast<double>(rng()); !std::isnan(any)) v.push_back(any);
    v.push_back(small(rng));
    v.push_back(std::round(small(rng)));  // many equal values
  }
  std::sort(v.begin(), v.end());
  for (std::size_t i = 0; i < v.size(); ++i) {
    const std::string k = NumberKey(v[i]);
    const double back = DecodeNumberKey(reinterpret_cast<const unsigned char*>(k.data()));
    ASSERT_EQ(back, v[i]);
    ASSERT_FALSE(back == 0 && std::signbit(back)) << "-0 comes back as +0";
    if (i == 0) continue;
    if (v[i - 1] < v[i]) {
      ASSERT_LT(NumberKey(v[i - 1]), k) << v[i - 1] << " vs " << v[i];
    } else {
      ASSERT_EQ(NumberKey(v[i - 1]), k) << v[i - 1] << " vs " << v[i];
    }
  }
}

TEST(ExprKeys, FieldKeysSortAsValues) {
  const std::vector<std::string> values = {"-999.99", "-12.50", "-0.01", "0.00", "0.01", "3.25", "12345.67"};
  Ascending("VALUE", "VALUE", values);
  Ascending("-VALUE", "VALUE", std::vector<std::string>(values.rbegin(), values.rend()));
  Ascending("VAL(ID)", "ID", {"9", "10"});  // as numbers, not as text
  Ascending("BORN", "BORN", {"", "00010101", "00010102", "18991231", "19900102", "19900103", "20240229", "99991231"});
  // Integers across every byte boundary, the sign's among them.
  Ascending("QTY", "QTY", {"-2147483648", "-16777217", "-65537", "-257", "-256", "-1", "0", "1", "255", "256", "65536",
                           "16777216", "2147483647"});

  auto value = Parse("VALUE"), born = Parse("BORN"), recno = Parse("RECNO()");
  ASSERT_TRUE(value && born && recno);
  EXPECT_EQ(Key(*value, Record("VALUE=")), Key(*value, Record("VALUE=0.00"))) << "blank is 0";
  EXPECT_EQ(Key(*born, Record("BORN=")), NumberKey(0)) << "a blank date is 0, below every date";
  EXPECT_EQ(Key(*born, Record("BORN=2023ab01")), NumberKey(0)) << "a date that is no date keys as blank";
  EXPECT_LT(Key(*recno, Record(), 2), Key(*recno, Record(), 10));
  EXPECT_LT(Key(*recno, Record(), 10), Key(*recno, Record(), 1000000));
}

TEST(ExprKeys, TextKeysArePaddedIntoTheCallersBuffer) {
  Check({{'K', "TRIM(NAME)+CITY", "SmithOslo         "},  // the trimmed name joins the city; blanks go to the end
         {'K', "NAME-CITY", "SmithOslo         "}, {'K', "ACTIVE .AND. VALUE < 0", "T"},
         {'K', "ACTIVE .AND. VALUE < 0", "F", "ACTIVE=F"}});
  auto e = Parse("UPPER(NAME)+CITY");
  ASSERT_NE(e, nullptr);
  std::string key;
  key.reserve(64);
  const char* buffer = key.data();
  const std::string a = Record(), b = Record("NAME=jones;CITY=Bergen");
  e->EvalKey({a.data(), 1}, &key);
  EXPECT_EQ(key, "SMITH     Oslo    ");
  e->EvalKey({b.data(), 1}, &key);
  EXPECT_EQ(key, "JONES     Bergen  ");
  EXPECT_EQ(key.data(), buffer) << "a buffer big enough is reused";
}

TEST(ExprDate, JulianDayNumbers) {
  const std::pair<const char*, long> days[] = {
      {"19900102", 2447894}, {"00010101", 1721426}, {"99991231", 5373484}, {"19700101", 2440588},
      {"20000229", 2451604}, {"20000301", 2451605}, {"15821015", 2299161},
      {"15821004", 2299150}};  // proleptic: no calendar switch
  for (const auto& [date, day] : days) {
    EXPECT_EQ(DateToJulian(date), day) << date;
    EXPECT_EQ(JulianToDate(day), date) << day;
  }
  for (long day : {0L, -5L, 1721425L, 5373485L}) EXPECT_EQ(JulianToDate(day), "        ") << day;
  for (const char* bad : {"        ", "", "1990010", "199001021", "20230230", "19000229", "20231301", "20230100",
                          "00000101", "2023ab01", "-1990010", " 1990010"})
    EXPECT_EQ(DateToJulian(bad), 0) << "'" << bad << "'";
}

TEST(ExprDate, EveryDayRoundTripsAndSorts) {
  std::string prev;
  for (long j = 1721426; j <= 5373484; ++j) {
    const std::string d = JulianToDate(j);
    ASSERT_EQ(DateToJulian(d), j) << d;
    ASSERT_LT(prev, d) << j;
    prev = d;
  }
}

TEST(ExprErrors, BadExpressionsNameThePositionAndClearTheOutput) {
  struct Case {
    std::string text;
    const char* what;  // text the message holds
    int at;            // 1-based position the message names (0: not checked)
  };
  std::string chain = "NAME";
  for (int i = 0; i < 400; ++i) chain += "+NAME";
  const Case cases[] = {
      {"", "empty expression", 1}, {"   ", "empty expression", 4}, {"FOO", "unknown field 'FOO'", 1},
      {"UPPER(FOO)", "unknown field 'FOO'", 7}, {"NAME+foo", "unknown field 'FOO'", 6},
      {"LONGFIELD", "unknown field 'LONGFIELD'", 1}, {"FOO(NAME)", "unknown function 'FOO'", 1},
      {"UPP(NAME)", "unknown function 'UPP'", 1}, {"UPPER(NAME", "expected ')'", 11}, {"VAL(ID", "expected ')'", 7},
      {"(NAME", "expected ')'", 6}, {"((NAME)", "expected ')'", 8}, {"NAME)", "unexpected ')'", 5},
      {"NAME NAME", "unexpected 'NAME'", 6}, {"NAME 'x'", "unexpected", 6}, {"VALUE 1", "unexpected '1'", 7},
      {"UPPER(VALUE)", "UPPER needs text as argument 1, got a number", 7},
      {"STR(NAME)", "STR needs a number as argument 1, got text", 5}, {"DTOS(NAME)", "DTOS needs a date", 6},
      {"SUBSTR(NAME,'1')", "SUBSTR needs a number as argument 2", 13}, {"IIF(NAME,1,2)", "IIF needs a logical", 5},
      {"IIF(ACTIVE,NAME,1)", "one type", 17}, {"NAME + VALUE", "cannot add a number to text", 6},
      {"VALUE - NAME", "cannot subtract text from a number", 7}, {"BORN + BORN", "cannot add a date to a date", 6},
      {"VALUE * NAME", "'*' needs numbers", 7}, {"BORN / 2", "'/' needs numbers", 6},
      {"-NAME", "unary '-' needs a number", 1}, {"NAME = 5", "cannot compare text with a number", 6},
      {"BORN = VALUE", "cannot compare a date with a number", 6},
      {".NOT. NAME", ".NOT. needs a logical value, got text", 7}, {"NAME .AND. .T.", ".AND. needs a logical value", 1},
      {".T. .OR. 1", ".OR. needs a logical value, got a number", 10}, {"NOTES", "memo field 'NOTES'", 1},
      {"UPPER(NOTES)", "memo field 'NOTES'", 7}, {"STAMP", "field 'STAMP' of type 'T' cannot be used", 1},
      {"SHORTI", "has width 2, not 4", 1}, {"QTY+SHORTB", "has width 4, not 8", 5},
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
      {"NAME\x01", "unexpected byte 0x01", 5}, {"NA\0ME"s, "unexpected byte 0x00", 3},
      {std::string(70, '(') + "NAME" + std::string(70, ')'), "nested too deeply", 65},
      {std::string(80, '-') + "1", "nested too deeply", 65}, {chain, "nested too deeply", 0},
  };
  for (const Case& c : cases) {
    std::unique_ptr<Expr> e = Parse("NAME");
    const Status s = Expr::Parse(c.text, Fields(), &e);
    EXPECT_EQ(s.kind(), Status::Kind::kInvalidArgument) << c.text << ": " << s.ToString();
    EXPECT_NE(s.message().find(c.what), std::string::npos) << c.text << ": " << s.message();
    const std::string at = " at " + std::to_string(c.at) + " in '";
    EXPECT_TRUE(c.at == 0 || s.message().find(at) != std::string::npos) << c.text << ": " << s.message() << at;
    EXPECT_EQ(e, nullptr) << c.text << ": a failed parse clears the output";
  }
}

}  // namespace
}  // namespace kvd::engine
