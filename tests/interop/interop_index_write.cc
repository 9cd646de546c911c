// interop_index_write DIR: writes two tables with a compound index of six tags for other programs
// to read, checks our own walk of every tag against the order the stored values call for, and
// writes that walk to DIR/expected_index.json.
//
// Tables (the same 3 000 records, the same later changes, the same tags):
//   IXKEPT.DBF + .CDX   the index is made with the table, empty, and kept current record by
//                       record: appends, then changed names and amounts, deletions, recalls
//   IXBUILT.DBF + .CDX  the same records and changes first, then the index built in one go
//
// Tags, in the order they are made:
//   NAME     NAME                     character, 30 bytes; duplicates, a blank name, a leading
//                                     blank, 8-bit text, names that are prefixes of others
//   NAMEID   UPPER(NAME)+ID           character, 38 bytes: the deepest tree
//   AMOUNT   AMOUNT                   numeric; negative, zero, blank (reads 0), fractions
//   QTYDESC  QTY, descending          numeric, many duplicates
//   CITY     CITY, unique             character; only the first record of each city is in it
//   LIVE     ID for .NOT. DELETED()   character; deleted records are out, recalled ones back
//
// expected_index.json:
//   {"tables": [{"file", "index", "tags": [{"name", "expression", "filter", "type" ("C"/"N"),
//                "key_length", "unique", "descending", "keys": [[key, recno], ...]}]}]}
//   keys: our walk in tag order (for a descending tag, highest key first). A character key is the
//   key text without its trailing blanks; a numeric key is the number the key bytes decode to.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "tests/interop/interop_json.h"

namespace {

using kvd::interop::Quote;

[[noreturn]] void Die(CODE4* code, const std::string& what) {
  std::fprintf(stderr, "interop_index_write: %s: error %d %s\n", what.c_str(), code ? code->errorCode : 0,
               code ? error4lastDetail(code) : "");
  std::exit(1);
}

constexpr int kRecords = 3000;

// One record as we mean to store it.
struct Row {
  std::string name;    // NAME C(30)
  std::string id;      // ID C(8), every record its own
  std::string city;    // CITY C(15)
  long long cents;     // AMOUNT N(12,2) in hundredths
  bool blank_amount;   // AMOUNT left blank
  long qty;            // QTY N(5,0)
  bool deleted;
};

std::string Padded(std::string s, std::size_t len) {
  s.resize(len, ' ');
  return s;
}

std::string Upper(std::string s) {
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s;
}

// A small deterministic generator: the same records on every run.
struct Lcg {
  std::uint32_t state = 12345;
  std::uint32_t Next(std::uint32_t n) {
    state = state * 1103515245u + 12345u;
    return (state >> 8) % n;
  }
};

std::vector<Row> MakeRows() {
  static const char* const kSyllables[] = {"an", "ber", "ca", "dor", "el", "fi", "gu", "ha", "in", "jo",
                                           "ka", "lu", "mo", "na", "or", "pe", "qui", "ro", "sa", "tu"};
  static const char* const kCities[] = {"Aachen", "Basel", "Bern", "Chur", "Dortmund", "Essen", "Graz", "Linz",
                                        "Wien", "Zug", "Z\xfcrich", "", "  Lead"};
  // Names that stress the leaf compression: a blank name, a leading blank, a name that is a
  // prefix of others with a blank after it, case variants (equal under UPPER), 8-bit text, a name
  // of exactly the field width and one cut to it.
  static const char* const kSpecial[] = {"", " lead", "AB", "AB C", "AB  D", "ABC", "anna", "Anna", "ANNA",
                                         "J\xe9r\xf4me", "\xdc" "ber", "exactly thirty characters long",
                                         "longer than the thirty characters of the field"};
  Lcg g;
  std::vector<Row> rows;
  for (int r = 0; r < kRecords; ++r) {
    Row row;
    if (r < static_cast<int>(std::size(kSpecial)) * 3 && r % 3 == 0) {
      row.name = kSpecial[r / 3];
    } else {
      const int n = 1 + static_cast<int>(g.Next(4));
      for (int k = 0; k < n; ++k) row.name += kSyllables[g.Next(std::size(kSyllables))];
      row.name[0] = static_cast<char>(row.name[0] - 'a' + 'A');
    }
    row.name = row.name.substr(0, 30);
    char id[16];
    std::snprintf(id, sizeof id, "%08d", (r * 7919) % 100003);
    row.id = id;
    row.city = kCities[g.Next(std::size(kCities))];
    row.cents = static_cast<long long>(g.Next(2000001)) - 1000000;
    if (r % 97 == 5) row.cents = 0;
    if (r % 89 == 7) row.cents = r % 2 ? 9999999999LL : -9999999999LL;
    row.blank_amount = r % 101 == 9;
    row.qty = static_cast<long>(g.Next(101)) - 50;
    row.deleted = false;
    rows.push_back(std::move(row));
  }
  return rows;
}

// The changes made after all records are in, the same for both tables: new names and negated
// amounts, deletions, and a few deleted records recalled. Cities stay: a unique tag keeps the first
// record that had a key, and a changed city would leave no record of it in the tag.
struct Change {
  int index;  // 0-based record
  enum class Kind { kRename, kDelete, kRecall } kind;
};

std::vector<Change> MakeChanges() {
  std::vector<Change> c;
  for (int r = 0; r < kRecords; ++r) {
    if (r % 11 == 4) c.push_back({r, Change::Kind::kRename});
    if (r % 7 == 3) c.push_back({r, Change::Kind::kDelete});
  }
  for (int r = 0; r < kRecords; ++r)
    if (r % 49 == 3) c.push_back({r, Change::Kind::kRecall});  // r % 7 == 3 too: deleted above
  return c;
}

void Apply(const Change& c, Row* row) {
  switch (c.kind) {
    case Change::Kind::kRename:
      row->name = ("Re" + row->name).substr(0, 30);
      row->cents = -row->cents;
      break;
    case Change::Kind::kDelete: row->deleted = true; break;
    case Change::Kind::kRecall: row->deleted = false; break;
  }
}

// ---- tags and the order their values call for ----------------------------------------------------

// A key as the values give it: text (blank-padded to the key length) or a number.
struct ModelKey {
  std::string text;
  double number = 0;
};

struct TagDef {
  const char* name;
  const char* expression;
  const char* filter;
  short unique;
  bool descending;
  char type;
  std::function<ModelKey(const Row&)> key;
};

double Amount(const Row& r) { return r.blank_amount ? 0.0 : static_cast<double>(r.cents) / 100.0; }

std::vector<TagDef> Tags() {
  return {
      {"NAME", "NAME", "", 0, false, 'C', [](const Row& r) { return ModelKey{Padded(r.name, 30)}; }},
      {"NAMEID", "UPPER(NAME)+ID", "", 0, false, 'C',
       [](const Row& r) { return ModelKey{Upper(Padded(r.name, 30)) + r.id}; }},
      {"AMOUNT", "AMOUNT", "", 0, false, 'N', [](const Row& r) { return ModelKey{"", Amount(r)}; }},
      {"QTYDESC", "QTY", "", 0, true, 'N', [](const Row& r) { return ModelKey{"", static_cast<double>(r.qty)}; }},
      {"CITY", "CITY", "", r4uniqueContinue, false, 'C', [](const Row& r) { return ModelKey{Padded(r.city, 15)}; }},
      {"LIVE", "ID", ".NOT. DELETED()", 0, false, 'C', [](const Row& r) { return ModelKey{r.id}; }},
  };
}

// One entry of a walk as it goes into the JSON file.
std::string KeyJson(char type, const std::string& text, double number) {
  if (type == 'N') {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", number == 0 ? 0.0 : number);
    return buf;
  }
  std::string t = text;
  while (!t.empty() && t.back() == ' ') t.pop_back();
  return Quote(t);
}

// The walk the values call for: ascending by key, duplicates by record number, then unique and
// descending applied.
std::vector<std::string> ModelWalk(const TagDef& t, const std::vector<Row>& rows) {
  struct E {
    ModelKey k;
    long recno;
  };
  std::vector<E> e;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (*t.filter && rows[i].deleted) continue;  // the one filter used here
    e.push_back({t.key(rows[i]), static_cast<long>(i + 1)});
  }
  auto less = [&](const E& a, const E& b) { return t.type == 'N' ? a.k.number < b.k.number : a.k.text < b.k.text; };
  std::stable_sort(e.begin(), e.end(), less);
  if (t.unique)
    e.erase(std::unique(e.begin(), e.end(), [&](const E& a, const E& b) { return !less(a, b) && !less(b, a); }),
            e.end());
  if (t.descending) std::reverse(e.begin(), e.end());
  std::vector<std::string> out;
  for (const E& x : e) out.push_back("[" + KeyJson(t.type, x.k.text, x.k.number) + ", " + std::to_string(x.recno) + "]");
  return out;
}

// Numeric key bytes back to the number: the IEEE double big-endian, sign bit set for values of 0
// and above, every bit inverted for negative ones.
double NumberOfKey(const unsigned char* k) {
  unsigned char b[8];
  std::memcpy(b, k, 8);
  if (b[0] & 0x80) b[0] &= 0x7F;
  else for (unsigned char& c : b) c = static_cast<unsigned char>(~c);
  std::uint64_t bits = 0;
  for (unsigned char c : b) bits = bits << 8 | c;
  double v;
  std::memcpy(&v, &bits, 8);
  return v;
}

// Our walk of a tag in its order.
std::vector<std::string> OurWalk(CODE4* code, DATA4St* d, TAG4St* tag, char type) {
  std::vector<std::string> out;
  d4tagSelect(d, tag);
  int rc = d4top(d);
  for (; rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
    const char* k = t4keyOfRecord(tag);
    const std::string text(k, static_cast<std::size_t>(t4keyLen(tag)));
    const double number = type == 'N' ? NumberOfKey(reinterpret_cast<const unsigned char*>(k)) : 0;
    out.push_back("[" + KeyJson(type, text, number) + ", " + std::to_string(d4recNo(d)) + "]");
  }
  if (rc < 0) Die(code, std::string("walking tag ") + t4alias(tag));
  d4tagSelect(d, nullptr);
  return out;
}

// ---- writing --------------------------------------------------------------------------------------

const FIELD4INFO kFields[] = {{"NAME", 'C', 30, 0, 0}, {"ID", 'C', 8, 0, 0},    {"CITY", 'C', 15, 0, 0},
                              {"AMOUNT", 'N', 12, 2, 0}, {"QTY", 'N', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};

void Assign(DATA4St* d, const Row& r) {
  f4assign(d4field(d, "NAME"), r.name.c_str());
  f4assign(d4field(d, "ID"), r.id.c_str());
  f4assign(d4field(d, "CITY"), r.city.c_str());
  if (r.blank_amount) f4blank(d4field(d, "AMOUNT"));
  else f4assignDouble(d4field(d, "AMOUNT"), static_cast<double>(r.cents) / 100.0);
  f4assignLong(d4field(d, "QTY"), r.qty);
}

// Writes a table of `rows` (as first appended), makes `changes`, and gives it the tags: from the
// start when `index_first`, else after everything else.
void WriteTable(CODE4* code, const std::string& path, std::vector<Row> rows, const std::vector<Change>& changes,
                const std::vector<TAG4INFO>& tags, bool index_first) {
  DATA4St* d = d4create(code, path.c_str(), kFields, index_first ? tags.data() : nullptr);
  if (!d) Die(code, "d4create " + path);
  if (d4lockAll(d) != 0) Die(code, "d4lockAll");
  for (const Row& r : rows) {
    if (d4appendStart(d, 0) != 0) Die(code, "d4appendStart");
    d4blank(d);
    Assign(d, r);
    if (d4append(d) != 0) Die(code, "d4append");
  }
  for (const Change& c : changes) {
    if (d4go(d, c.index + 1) != 0) Die(code, "d4go");
    Apply(c, &rows[c.index]);
    switch (c.kind) {
      case Change::Kind::kRename: Assign(d, rows[c.index]); break;
      case Change::Kind::kDelete: d4delete(d); break;
      case Change::Kind::kRecall: d4recall(d); break;
    }
    if (d4flush(d) != 0) Die(code, "d4flush of a changed record");
  }
  if (!index_first && !i4create(d, nullptr, tags.data())) Die(code, "i4create for " + path);
  if (d4close(d) != 0) Die(code, "d4close " + path);
  if (code->errorCode != 0) Die(code, "writing " + path);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: interop_index_write DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  CODE4 code;
  if (code4initLow(&code, nullptr, 0, sizeof(CODE4), 0) != 0) Die(nullptr, "code4initLow");
  code.safety = 0;
  code.autoOpen = 1;

  std::vector<Row> rows = MakeRows();
  const std::vector<Change> changes = MakeChanges();
  const std::vector<TagDef> defs = Tags();
  std::vector<TAG4INFO> tags;
  for (const TagDef& t : defs) tags.push_back(TAG4INFO{t.name, t.expression, t.filter, t.unique, t.descending});
  tags.push_back(TAG4INFO{nullptr, nullptr, nullptr, 0, 0});
  std::vector<Row> final_rows = rows;
  for (const Change& c : changes) Apply(c, &final_rows[c.index]);

  int mismatches = 0;
  std::string json = "{\"tables\": [";
  const char* const kTables[] = {"IXKEPT", "IXBUILT"};
  for (const char* name : kTables) {
    const std::string base = std::string(name);
    WriteTable(&code, dir + "/" + base + ".DBF", rows, changes, tags, base == "IXKEPT");
    // Read back through a fresh open: the production index comes with the table.
    DATA4St* d = d4open(&code, (dir + "/" + base + ".DBF").c_str());
    if (!d) Die(&code, "d4open " + base);
    json += std::string(name == kTables[0] ? "\n " : ",\n ") + "{\"file\": " + Quote(base + ".DBF") +
            ", \"index\": " + Quote(base + ".CDX") + ", \"tags\": [";
    for (std::size_t i = 0; i < defs.size(); ++i) {
      const TagDef& t = defs[i];
      TAG4St* tag = d4tag(d, t.name);
      if (!tag) Die(&code, base + ": tag " + t.name + " missing after reopening");
      const std::vector<std::string> walk = OurWalk(&code, d, tag, t.type);
      const std::vector<std::string> model = ModelWalk(t, final_rows);
      // Our own order must be the one the values call for before another reader is asked.
      if (walk != model) {
        ++mismatches;
        std::size_t at = 0;
        while (at < walk.size() && at < model.size() && walk[at] == model[at]) ++at;
        std::fprintf(stderr, "MISMATCH: %s tag %s: %zu keys walked, %zu expected; first difference at %zu: walked %s, expected %s\n",
                     base.c_str(), t.name, walk.size(), model.size(), at, at < walk.size() ? walk[at].c_str() : "(end)",
                     at < model.size() ? model[at].c_str() : "(end)");
      }
      json += std::string(i ? ",\n  " : "\n  ") + "{\"name\": " + Quote(t4alias(tag)) +
              ", \"expression\": " + Quote(t4expr(tag)) + ", \"filter\": " + Quote(t4filter(tag)) +
              ", \"type\": \"" + t.type + "\", \"key_length\": " + std::to_string(t4keyLen(tag)) +
              ", \"unique\": " + (t4unique(tag) ? "true" : "false") +
              ", \"descending\": " + (t4descending(tag) ? "true" : "false") + ",\n   \"keys\": [";
      for (std::size_t k = 0; k < walk.size(); ++k) json += (k ? (k % 8 ? ", " : ",\n    ") : "") + walk[k];
      json += "]}";
    }
    json += "]}";
    d4close(d);
  }
  json += "\n]}\n";
  if (code4initUndo(&code) != 0) Die(nullptr, "code4initUndo");
  std::ofstream out(dir + "/expected_index.json", std::ios::binary | std::ios::trunc);
  out << json;
  if (!out.flush()) {
    std::fprintf(stderr, "interop_index_write: cannot write %s/expected_index.json\n", dir.c_str());
    return 1;
  }
  if (mismatches) {
    std::fprintf(stderr, "interop_index_write: %d tags walk in another order than their values call for\n", mismatches);
    return 1;
  }
  std::printf("interop_index_write: 2 tables with %zu tags each in %s\n", defs.size(), dir.c_str());
  return 0;
}
