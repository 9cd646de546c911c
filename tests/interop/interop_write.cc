// interop_write DIR: writes tables with our engine for other programs to read, and beside them
// expected.json saying what each field must read as.
//
// Tables:
//   PLAIN.DBF          no memo (version 0x03): C, N with and without decimals, D, L; negative
//                      numbers, a record of blank fields, 8-bit text, a deleted record
//   MEMO.DBF + .FPT    version 0xF5: a binary memo with NULs and all 256 byte values, an empty memo,
//                      memos of one block exactly, one byte more, many blocks, one rewritten longer
//                      (moved to the end of the file) and one rewritten shorter (kept in place),
//                      a deleted record with a memo
//   WIDE.DBF + .FPT    141 fields: a C field of 254 bytes, C/N/D/L fields of many widths, one memo
//
// expected.json:
//   {"tables": [{"file", "memo_file" (null when none), "version", "record_length",
//                "fields": [{"name", "type", "len", "dec"}],
//                "records": [{"deleted", "stored": [...], "values": [...]}]}]}
//   stored[i]  the field's bytes exactly as they must stand in the record, as a JSON string of
//              one character per byte (null for memo fields, whose pointer text is the engine's
//              choice)
//   values[i]  what a reader should make of it: C the text without trailing blanks; N the number
//              as decimal text, null when blank; D "YYYYMMDD", null when blank; L true, false or
//              null when blank; M the memo bytes in hex ("" when empty)
// The expectations are built here from the values we meant to store, not read back through the
// engine, so a wrong byte in a table shows up in every reader.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "tests/interop/interop_json.h"

namespace {

using kvd::interop::Hex;
using kvd::interop::Quote;

[[noreturn]] void Die(CODE4* code, const std::string& what) {
  std::fprintf(stderr, "interop_write: %s: error %d %s\n", what.c_str(), code ? code->errorCode : 0,
               code ? error4lastDetail(code) : "");
  std::exit(1);
}

// One field value as we mean it: how it is given to the engine and what readers must see.
struct Value {
  enum class Kind { kText, kNumber, kDate, kLogical, kMemo, kBlank } kind = Kind::kBlank;
  std::string text;  // C text, N decimal text, D "YYYYMMDD", L "T"/"F", M bytes
};

Value Text(std::string s) { return {Value::Kind::kText, std::move(s)}; }
Value Number(std::string s) { return {Value::Kind::kNumber, std::move(s)}; }
Value Date(std::string s) { return {Value::Kind::kDate, std::move(s)}; }
Value Logical(bool b) { return {Value::Kind::kLogical, b ? "T" : "F"}; }
Value Memo(std::string bytes) { return {Value::Kind::kMemo, std::move(bytes)}; }
Value Blank() { return {}; }

struct Field {
  std::string name;
  char type;
  unsigned len;
  unsigned dec;
};

struct Record {
  std::vector<Value> values;
  bool deleted = false;
};

// Writes one value into the current record buffer the way the table layer does.
void Assign(CODE4* code, FIELD4St* f, const Field& def, const Value& v) {
  switch (v.kind) {
    case Value::Kind::kBlank:
      f4blank(f);
      break;
    case Value::Kind::kText:
    case Value::Kind::kDate:
      f4assign(f, v.text.c_str());
      break;
    case Value::Kind::kLogical:
      f4assignChar(f, v.text[0]);
      break;
    case Value::Kind::kNumber:
      if (def.dec == 0) f4assignLong(f, std::atol(v.text.c_str()));
      else f4assignDouble(f, std::strtod(v.text.c_str(), nullptr));
      break;
    case Value::Kind::kMemo:
      if (f4memoAssignN(f, v.text.data(), static_cast<unsigned>(v.text.size())) != 0) Die(code, "f4memoAssignN");
      break;
  }
}

// The bytes a field must hold for a value (memo fields: not ours to say).
std::string Stored(const Field& def, const Value& v) {
  if (def.type == 'M') return {};
  if (v.kind == Value::Kind::kBlank) return std::string(def.len, ' ');
  std::string s = v.text;
  if (def.type == 'N') {
    if (s.size() > def.len) std::abort();  // a test value that cannot fit is a mistake here
    return std::string(def.len - s.size(), ' ') + s;
  }
  s.resize(def.len, ' ');
  return s;
}

std::string ValueJson(const Field& def, const Value& v) {
  if (def.type == 'M') return "\"" + Hex(v.kind == Value::Kind::kBlank ? "" : v.text) + "\"";
  if (v.kind == Value::Kind::kBlank) return def.type == 'C' ? "\"\"" : "null";
  switch (def.type) {
    case 'C': {
      std::string t = v.text.substr(0, def.len);
      while (!t.empty() && t.back() == ' ') t.pop_back();
      return Quote(t);
    }
    case 'N':
    case 'D': return "\"" + v.text + "\"";
    case 'L': return v.text == "T" ? "true" : "false";
  }
  std::abort();
}

class Table {
 public:
  std::string file;
  std::vector<Field> fields;
  std::vector<Record> records;
  // Memos to write again after all records are in: (record index, new bytes).
  std::vector<std::pair<std::size_t, std::string>> rewrites;

  bool has_memo() const {
    for (const Field& f : fields)
      if (f.type == 'M') return true;
    return false;
  }

  void Write(CODE4* code, const std::string& dir) {
    std::vector<FIELD4INFO> info;
    for (const Field& f : fields)
      info.push_back(FIELD4INFO{f.name.c_str(), static_cast<short>(f.type), static_cast<unsigned short>(f.len),
                                static_cast<unsigned short>(f.dec), 0});
    info.push_back(FIELD4INFO{nullptr, 0, 0, 0, 0});
    const std::string path = dir + "/" + file;
    DATA4St* d = d4create(code, path.c_str(), info.data(), nullptr);
    if (!d) Die(code, "d4create " + path);
    if (d4lockAll(d) != 0) Die(code, "d4lockAll");
    for (const Record& r : records) {
      if (d4appendStart(d, 0) != 0) Die(code, "d4appendStart");
      d4blank(d);
      for (std::size_t i = 0; i < fields.size(); ++i)
        Assign(code, d4fieldJ(d, static_cast<short>(i + 1)), fields[i], r.values[i]);
      if (d4append(d) != 0) Die(code, "d4append");
      if (r.deleted) {
        d4delete(d);
        if (d4flush(d) != 0) Die(code, "d4flush after d4delete");
      }
    }
    for (const auto& [index, bytes] : rewrites) {
      if (d4go(d, static_cast<long>(index + 1)) != 0) Die(code, "d4go");
      for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].type != 'M') continue;
        FIELD4St* f = d4fieldJ(d, static_cast<short>(i + 1));
        if (f4memoAssignN(f, bytes.data(), static_cast<unsigned>(bytes.size())) != 0) Die(code, "f4memoAssignN");
        records[index].values[i] = Memo(bytes);
      }
      if (d4flush(d) != 0) Die(code, "d4flush of a rewritten memo");
    }
    if (d4close(d) != 0) Die(code, "d4close " + path);
    if (code->errorCode != 0) Die(code, "writing " + path);
  }

  std::string Json() const {
    unsigned reclen = 1;
    for (const Field& f : fields) reclen += f.len;
    std::string j = "{\"file\": " + Quote(file) + ", \"memo_file\": ";
    j += has_memo() ? Quote(file.substr(0, file.size() - 4) + ".FPT") : "null";
    j += ", \"version\": " + std::to_string(has_memo() ? 0xF5 : 0x03);
    j += ", \"record_length\": " + std::to_string(reclen) + ",\n  \"fields\": [";
    for (std::size_t i = 0; i < fields.size(); ++i) {
      const Field& f = fields[i];
      j += (i ? ", " : "") + std::string("{\"name\": ") + Quote(f.name) + ", \"type\": \"" + f.type +
           "\", \"len\": " + std::to_string(f.len) + ", \"dec\": " + std::to_string(f.dec) + "}";
    }
    j += "],\n  \"records\": [";
    for (std::size_t r = 0; r < records.size(); ++r) {
      const Record& rec = records[r];
      j += r ? ",\n    " : "\n    ";
      j += std::string("{\"deleted\": ") + (rec.deleted ? "true" : "false") + ", \"stored\": [";
      for (std::size_t i = 0; i < fields.size(); ++i) {
        j += i ? ", " : "";
        j += fields[i].type == 'M' ? "null" : Quote(Stored(fields[i], rec.values[i]));
      }
      j += "], \"values\": [";
      for (std::size_t i = 0; i < fields.size(); ++i) j += (i ? ", " : "") + ValueJson(fields[i], rec.values[i]);
      j += "]}";
    }
    return j + "]}";
  }
};

Table PlainTable() {
  Table t;
  t.file = "PLAIN.DBF";
  // BIG holds numbers of 15 significant digits: every such decimal survives the trip through a
  // double, so each must be stored exactly as written.
  t.fields = {{"NAME", 'C', 20, 0}, {"AMOUNT", 'N', 12, 3}, {"QTY", 'N', 6, 0}, {"BORN", 'D', 8, 0},
              {"ACTIVE", 'L', 1, 0}, {"CODE", 'C', 1, 0}, {"BIG", 'N', 18, 2}};
  t.records = {
      {{Text("Anna Meier"), Number("1234.500"), Number("42"), Date("19700101"), Logical(true), Text("A"),
        Number("1234567890123.45")}},
      {{Text("Negative"), Number("-0.125"), Number("-17"), Date("20000229"), Logical(false), Text("B"),
        Number("-0.50")}, true},
      {{Blank(), Blank(), Blank(), Blank(), Blank(), Blank(), Blank()}},
      {{Text("J\xe9r\xf4me \xdc\xdf\xff"), Number("-99999.999"), Number("-99999"), Date("18991231"), Logical(true),
        Text("\xe4"), Number("-9999999999999.99")}},
      {{Text("exactly twenty chars"), Number("12345678.999"), Number("999999"), Date("00010101"), Logical(false),
        Text(" "), Number("9007199254740.99")}},
      {{Text("  leading blanks"), Number("0.000"), Number("0"), Date("99991231"), Blank(), Text("z"), Number("0.01")}},
      {{Text("cut to the width of twenty"), Number("-0.001"), Number("-1"), Blank(), Logical(true), Blank(),
        Number("123456789012.34")}},
  };
  return t;
}

std::string AllBytes() {
  std::string s;
  for (int i = 0; i < 256; ++i) s += static_cast<char>(i);
  s += std::string(3, '\0');
  for (int i = 255; i >= 0; --i) s += static_cast<char>(i);
  return s;
}

std::string LongText(std::size_t n) {
  std::string s;
  for (std::size_t line = 0; s.size() < n; ++line)
    s += "Line " + std::to_string(line) + ": the quick brown fox jumps over the lazy dog.\r\n";
  s.resize(n);
  return s;
}

Table MemoTable() {
  Table t;
  t.file = "MEMO.DBF";
  t.fields = {{"ID", 'N', 4, 0}, {"TITLE", 'C', 10, 0}, {"NOTES", 'M', 10, 0}};
  t.records = {
      {{Number("1"), Text("binary"), Memo(AllBytes())}},
      {{Number("2"), Text("empty"), Memo("")}},
      {{Number("3"), Text("one block"), Memo(std::string(56, 'x'))}},  // 8-byte block head + 56 = 64
      {{Number("4"), Text("spills"), Memo(std::string(57, 'y'))}},
      {{Number("5"), Text("long"), Memo(LongText(20000))}},
      {{Number("6"), Text("short"), Memo("hello")}},
      {{Number("7"), Text("deleted"), Memo("memo of a deleted record")}, true},
      {{Number("8"), Text("shrinks"), Memo(LongText(300))}},
      {{Number("9"), Text("nul end"), Memo(std::string("ends in NUL\0", 12))}},
      {{Number("-10"), Text("no memo"), Blank()}},
  };
  t.rewrites = {{5, LongText(700) + std::string("\0\x1a\xff", 3)}, {7, "now short"}};
  return t;
}

Table WideTable() {
  Table t;
  t.file = "WIDE.DBF";
  t.fields.push_back({"LONGTEXT", 'C', 254, 0});
  for (int i = 2; i <= 140; ++i) {
    char name[11];
    std::snprintf(name, sizeof name, "F%03d", i);
    switch (i % 4) {
      case 0: t.fields.push_back({name, 'C', static_cast<unsigned>(1 + (i * 37) % 120), 0}); break;
      case 1: t.fields.push_back({name, 'N', static_cast<unsigned>(4 + i % 15), static_cast<unsigned>(i % 3)}); break;
      case 2: t.fields.push_back({name, 'D', 8, 0}); break;
      case 3: t.fields.push_back({name, 'L', 1, 0}); break;
    }
  }
  t.fields.push_back({"REMARK", 'M', 10, 0});
  for (int r = 0; r < 6; ++r) {
    Record rec;
    rec.deleted = r == 2;
    std::string longtext;
    for (int k = 0; k < 254; ++k) longtext += static_cast<char>('!' + (k * 7 + r) % 94);
    rec.values.push_back(r == 4 ? Blank() : Text(longtext));
    for (std::size_t i = 1; i + 1 < t.fields.size(); ++i) {
      const Field& f = t.fields[i];
      if ((i + r) % 11 == 0) {
        rec.values.push_back(Blank());
        continue;
      }
      switch (f.type) {
        case 'C': rec.values.push_back(Text(std::string(f.len, static_cast<char>('a' + (i + r) % 26)))); break;
        case 'N': {
          // As many digits as the width allows, negative in odd records; at most 13 significant
          // digits when decimals go through a double (PLAIN.DBF's BIG field covers 15), 9 when the
          // value goes in as a 32-bit long.
          unsigned int_digits = f.len - (f.dec ? f.dec + 1 : 0) - 1;
          int_digits = std::min(int_digits, f.dec ? 13 - f.dec : 9u);
          std::string s = (r % 2 ? "-" : "") + std::string(int_digits, static_cast<char>('1' + (i + r) % 9));
          if (f.dec) s += "." + std::string(f.dec, static_cast<char>('0' + r % 10));
          rec.values.push_back(Number(s));
          break;
        }
        case 'D': {
          char d[32];
          std::snprintf(d, sizeof d, "%04d%02d%02d", 1900 + static_cast<int>(i) + r * 17, 1 + (r + static_cast<int>(i)) % 12,
                        1 + static_cast<int>(i) % 28);
          rec.values.push_back(Date(d));
          break;
        }
        case 'L': rec.values.push_back(Logical((i + r) % 2 == 0)); break;
      }
    }
    rec.values.push_back(r % 3 == 1 ? Blank() : Memo("wide memo " + std::to_string(r) + std::string(r * 40, '~')));
    t.records.push_back(std::move(rec));
  }
  return t;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: interop_write DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  CODE4 code;
  if (code4initLow(&code, nullptr, 0, sizeof(CODE4), 0) != 0) Die(nullptr, "code4initLow");
  code.safety = 0;
  code.autoOpen = 0;
  std::vector<Table> tables = {PlainTable(), MemoTable(), WideTable()};
  std::string json = "{\"tables\": [\n";
  for (std::size_t i = 0; i < tables.size(); ++i) {
    tables[i].Write(&code, dir);
    json += (i ? ",\n " : " ") + tables[i].Json();
  }
  json += "\n]}\n";
  if (code4initUndo(&code) != 0) Die(nullptr, "code4initUndo");
  std::ofstream out(dir + "/expected.json", std::ios::binary | std::ios::trunc);
  out << json;
  if (!out.flush()) {
    std::fprintf(stderr, "interop_write: cannot write %s/expected.json\n", dir.c_str());
    return 1;
  }
  std::printf("interop_write: %zu tables in %s\n", tables.size(), dir.c_str());
  return 0;
}
