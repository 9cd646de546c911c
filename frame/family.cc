#include "frame/family.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "frame/kernel.h"
#include "lib/foundation/kvtext.h"
#include "platform/file.h"

namespace kvd::frame {
namespace {

char* Member(void* rec, const Column& c) { return static_cast<char*>(rec) + c.offset; }
const char* Member(const void* rec, const Column& c) { return static_cast<const char*>(rec) + c.offset; }

bool Wanted(const Column& c, Fill fill) { return fill == Fill::kFull || c.brief; }

// The field of column i. A table made from the definition has its fields in column order; an older
// table of the same fields in another order is kept as it is, so the name decides.
FIELD4St* FieldOf(DATA4St* db, const Column& c, int i) {
  FIELD4St* f = d4fieldJ(db, static_cast<short>(i + 1));
  if (f != nullptr && strcasecmp(f4name(f), c.name) == 0) return f;
  return d4field(db, c.name);
}

// The fields of every column of a family in one open table, worked out at the first row and kept
// for the rows after it: a cursor's rows then cost no look-up by name. A few tables at a time (a
// read cursor beside a write cursor), per thread; the handle's serial tells a later handle at the
// same address from the one the fields belong to.
FIELD4St* const* ColumnFields(const Family& f, DATA4St* db) {
  struct Entry {
    const Family* family = nullptr;
    unsigned long long serial = 0;
    std::vector<FIELD4St*> fields;
  };
  thread_local Entry cache[4];
  thread_local unsigned next = 0;
  const unsigned long long serial = d4serial(db);
  for (Entry& e : cache)
    if (e.family == &f && e.serial == serial) return e.fields.data();
  Entry& e = cache[next++ % std::size(cache)];
  e.family = &f;
  e.serial = serial;
  e.fields.resize(f.def().column_count);
  for (std::size_t i = 0; i < f.def().column_count; ++i)
    e.fields[i] = FieldOf(db, f.column(static_cast<int>(i)), static_cast<int>(i));
  return e.fields.data();
}

std::string Trimmed(const std::string& text) {
  std::vector<char> buf(text.begin(), text.end());
  buf.push_back('\0');
  return KvLTrim(KvRTrim(buf.data()));
}

// A whole number of a member of 1, 2 or 4 bytes.
long long LoadWhole(const char* m, std::size_t size, bool is_signed) {
  switch (size) {
    case 1: {
      std::uint8_t v;
      std::memcpy(&v, m, 1);
      return is_signed ? static_cast<long long>(static_cast<std::int8_t>(v)) : static_cast<long long>(v);
    }
    case 2: {
      std::uint16_t v;
      std::memcpy(&v, m, 2);
      return is_signed ? static_cast<long long>(static_cast<std::int16_t>(v)) : static_cast<long long>(v);
    }
    default: {
      std::uint32_t v;
      std::memcpy(&v, m, 4);
      return is_signed ? static_cast<long long>(static_cast<std::int32_t>(v)) : static_cast<long long>(v);
    }
  }
}

void StoreWhole(char* m, std::size_t size, long long v) {
  const std::uint32_t bits = static_cast<std::uint32_t>(v);  // the low bits, whatever the sign
  if (size == 1) {
    const std::uint8_t b = static_cast<std::uint8_t>(bits);
    std::memcpy(m, &b, 1);
  } else if (size == 2) {
    const std::uint16_t b = static_cast<std::uint16_t>(bits);
    std::memcpy(m, &b, 2);
  } else {
    std::memcpy(m, &bits, 4);
  }
}

bool IsWhole(Conv c) { return c == Conv::kInt || c == Conv::kInt32 || c == Conv::kSigned || c == Conv::kUnsigned; }

// "hh:mm:ss" as seconds: hours the number at the beginning, minutes the one behind the first ":",
// seconds the one behind the next; a part that is not there is 0, each part a 16-bit number.
std::int32_t TimeSeconds(const char* p, std::size_t len) {
  const std::string t(p, len);
  std::int16_t part[3] = {0, 0, 0};
  std::size_t at = 0;
  for (int i = 0; i < 3 && at <= t.size(); ++i) {
    part[i] = static_cast<std::int16_t>(std::strtol(t.c_str() + at, nullptr, 10));
    const std::size_t colon = t.find(':', at);
    if (colon == std::string::npos) break;
    at = colon + 1;
  }
  return (static_cast<std::int32_t>(part[0]) * 60 + part[1]) * 60 + part[2];
}

// A float as decimal text that fits `len` characters, right-aligned: as many decimals as fit, up
// to six, without trailing zeros.
std::string FloatText(float v, unsigned len) {
  char buf[64] = "";
  for (int dec = 6; dec >= 0; --dec) {
    std::snprintf(buf, sizeof buf, "%.*f", dec, static_cast<double>(v));
    std::string t = buf;
    if (t.find('.') != std::string::npos) {
      while (t.back() == '0') t.pop_back();
      if (t.back() == '.') t.pop_back();
    }
    if (t.size() <= len) return std::string(len - t.size(), ' ') + t;
  }
  return std::string(len, '*');  // the engine's mark for a number its field cannot hold
}

// The conversions beyond text, letters and plain integers: column -> member.
void ReadValue(const Column& c, FIELD4St* fld, char* m) {
  switch (c.conv) {
    case Conv::kSigned: StoreWhole(m, c.size, f4long(fld)); break;
    case Conv::kUnsigned: {
      // f4long stops at the signed 32-bit range; an unsigned 32-bit member goes beyond it. A text
      // beyond 32 bits (or no number at all) reads as 0.
      const double v = c.size < 4 ? static_cast<double>(f4long(fld)) : f4double(fld);
      StoreWhole(m, c.size, v > -4294967296.0 && v < 4294967296.0 ? static_cast<long long>(v) : 0);
      break;
    }
    case Conv::kFloat: {
      const float v = static_cast<float>(f4double(fld));
      std::memcpy(m, &v, sizeof v);
      break;
    }
    case Conv::kRaw16: {
      const unsigned char* p = reinterpret_cast<const unsigned char*>(f4ptr(fld));
      const std::uint16_t v = p == nullptr || f4len(fld) < 2 ? 0 : static_cast<std::uint16_t>(p[0] | (p[1] << 8));
      std::memcpy(m, &v, sizeof v);
      break;
    }
    case Conv::kHex: StoreWhole(m, c.size, Kvf4hex(fld)); break;
    case Conv::kLetter: StoreWhole(m, c.size, static_cast<unsigned char>(f4char(fld))); break;
    case Conv::kCode: {
      const int v = c.codes->from_letter(static_cast<char>(f4char(fld)));
      std::memcpy(m, &v, sizeof v);
      break;
    }
    case Conv::kTime: {
      const std::int32_t v = TimeSeconds(f4ptr(fld), f4len(fld));
      std::memcpy(m, &v, sizeof v);
      break;
    }
    default: break;  // kSkip, and the kinds BufferToRecord handles itself
  }
}

// Member -> column, for the same kinds.
void WriteValue(const Column& c, FIELD4St* fld, const char* m) {
  switch (c.conv) {
    case Conv::kSigned: f4assignLong(fld, static_cast<long>(LoadWhole(m, c.size, true))); break;
    case Conv::kUnsigned: f4assignLong(fld, static_cast<long>(LoadWhole(m, c.size, false))); break;
    case Conv::kFloat: {
      float v;
      std::memcpy(&v, m, sizeof v);
      if (c.type == 'N') {
        f4assignDouble(fld, v);  // rounded to the column's decimals
      } else {
        const std::string t = FloatText(v, c.len);
        f4assignN(fld, t.data(), static_cast<unsigned>(t.size()));
      }
      break;
    }
    case Conv::kRaw16: {
      std::uint16_t v;
      std::memcpy(&v, m, sizeof v);
      const char bytes[2] = {static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
      f4assignN(fld, bytes, 2);
      break;
    }
    case Conv::kHex: Kvf4assign_hex(fld, static_cast<std::uint32_t>(LoadWhole(m, c.size, false))); break;
    case Conv::kLetter: f4assignChar(fld, static_cast<char>(LoadWhole(m, c.size, false))); break;
    case Conv::kCode: {
      int v;
      std::memcpy(&v, m, sizeof v);
      f4assignChar(fld, c.codes->to_letter(v));
      break;
    }
    case Conv::kTime: {
      std::int32_t v;
      std::memcpy(&v, m, sizeof v);
      char buf[32];
      std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", static_cast<int>(v / 3600), static_cast<int>(v / 60 % 60),
                    static_cast<int>(v % 60));
      f4assign(fld, buf);
      break;
    }
    default: break;
  }
}

// A member as the table stores it in its column: text blank-padded (or cut) to the width, whole
// numbers right-aligned.
std::string StoredForm(const Column& c, const void* rec) {
  const char* m = Member(rec, c);
  std::string t;
  if (c.conv == Conv::kText) {
    t.assign(m, strnlen(m, c.size));
  } else if (IsWhole(c.conv)) {
    t = std::to_string(LoadWhole(m, c.size, c.conv != Conv::kUnsigned));
    if (t.size() < c.len) t.insert(0, c.len - t.size(), ' ');
  } else if (c.conv == Conv::kChar || c.conv == Conv::kLetter) {
    t.assign(1, *m);
  }
  t.resize(c.len, ' ');
  return t;
}

unsigned KeyWidth(const Family& f) {
  unsigned w = f.column(f.def().key_column).len;
  if (f.def().key_column2 >= 0) w += f.column(f.def().key_column2).len;
  return w;
}

// The key text for a seek, made from `name` by the family's rule into `key` (room for the key
// column's width and the terminator). False when the name cannot be a key of this table: a name
// longer than the key column matches no record.
bool MakeKey(const Family& f, const char* name, std::string* key) {
  const unsigned width = KeyWidth(f);
  std::string k = name != nullptr ? name : "";
  switch (f.def().key_rule) {
    case KeyRule::kTrim: k = Trimmed(k); break;
    case KeyRule::kPadUpper:
      // The letters the engine's upper() changes, and only those, so that the key is the tag's.
      for (char& ch : k)
        if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
      break;
    case KeyRule::kPad:
    case KeyRule::kAsGiven: break;
  }
  if (k.size() > width) return false;
  if (f.def().key_rule != KeyRule::kTrim && f.def().key_rule != KeyRule::kAsGiven) k.resize(width, ' ');
  *key = std::move(k);
  return true;
}

// The key member of a record as a terminated text (the caller may have filled the member to the
// last byte).
std::string KeyOf(const Family& f, const void* rec) {
  if (f.def().key_column2 >= 0) return StoredKey(f, rec);
  const Column& c = f.column(f.def().key_column);
  const char* m = Member(rec, c);
  return std::string(m, strnlen(m, c.size));
}

void SelectKeyTag(const Family& f, DATA4St* db) {
  if (f.def().key_tag != nullptr) d4tagSelect(db, d4tag(db, f.def().key_tag));
}

// The files a call opens: the family's own, or its import table's.
struct TableFiles {
  const char* db;
  const char* index;
};
TableFiles FilesOf(const Family& f, bool import) {
  if (import) return {f.def().import_db_name, f.def().import_index_name};
  return {f.def().db_name, f.def().index_name};
}

// The table's index, unless it has none (then null, and that is no failure).
bool OpenFamilyIndex(const Family& f, _SELECT_SD* s, DATA4St* db, INDEX4St** index, bool import = false) {
  *index = nullptr;
  const char* name = FilesOf(f, import).index;
  if (name == nullptr) return true;
  *index = OpenIndex(s, f.Path(s), name, db, f.def().tags);
  return *index != nullptr;
}

// The table and index of one call, closed when it ends.
class OpenCall {
 public:
  OpenCall(const Family& f, _SELECT_SD* s, int access) {
    db_ = OpenTable(s, f.Path(s), f.def().db_name, f.fields(), access);
    if (db_ == nullptr) {
      status_ = KVD_S_OPEN_TABLE;
      return;
    }
    INDEX4St* index = nullptr;
    if (!OpenFamilyIndex(f, s, db_, &index)) {
      d4close(db_);
      db_ = nullptr;
      status_ = KVD_S_OPEN_INDEX;
    }
  }
  ~OpenCall() { d4close(db_); }
  OpenCall(const OpenCall&) = delete;
  OpenCall& operator=(const OpenCall&) = delete;

  long status() const { return status_; }
  DATA4St* db() const { return db_; }

 private:
  DATA4St* db_ = nullptr;
  long status_ = KVD_S_OK;
};

char AccessLetter(const Family& f, const void* rec) { return *Member(rec, f.column(f.def().access_column)); }
void SetAccessLetter(const Family& f, void* rec, char letter) {
  *Member(rec, f.column(f.def().access_column)) = letter;
}
bool InSet(const char* set, char letter) { return letter != '\0' && std::strchr(set, letter) != nullptr; }

// A write lock on the current record. A write whose lock cannot be had (another process holds the
// record past the engine's wait) would be refused by the engine and lost without a word; the
// operation answers 6 instead, as for a table it cannot work on.
bool LockCurrent(DATA4St* db) { return d4lock(db, d4recNoLow(db)) == 0; }

_CURSOR_SD* NewCursor() { return static_cast<_CURSOR_SD*>(std::calloc(1, sizeof(_CURSOR_SD))); }

// Opens the cursor's table and index; on failure frees the cursor and answers 6 or 7.
long OpenCursorTables(const Family& f, _SELECT_SD* s, _CURSOR_SD** out, int access, bool import = false) {
  _CURSOR_SD* c = NewCursor();
  *out = c;
  if (c == nullptr) return KVD_S_NO_MEMORY;
  c->lpDb = OpenTable(s, f.Path(s), FilesOf(f, import).db, f.fields(), access);
  long status = KVD_S_OK;
  if (c->lpDb == nullptr) {
    status = KVD_S_OPEN_TABLE;
  } else {
    if (!OpenFamilyIndex(f, s, c->lpDb, &c->lpNdx, import)) {
      d4close(c->lpDb);
      status = KVD_S_OPEN_INDEX;
    }
  }
  if (status != KVD_S_OK) {
    std::free(c);
    *out = nullptr;
    return status;
  }
  c->nAccess = access;
  return KVD_S_OK;
}

void StoreWildcard(_CURSOR_SD* c, const char* w) {
  std::snprintf(c->szWildcard, sizeof c->szWildcard, "%s", w != nullptr ? w : "");
}

// Where a cursor starts, and what it keeps as its filter.
struct CursorStart {
  enum class At : std::uint8_t { kTop, kKey, kEnd } at = At::kTop;  // kEnd: a key no record has
  std::string key;     // At::kKey: the text sought
  std::string filter;  // for szWildcard
};

bool CountsAsNull(const Family& f, const char* w) {
  return w == nullptr || (w[0] == '\0' && f.def().empty_wildcard == EmptyWildcard::kNull);
}

// The start of OC and OC2.
CursorStart PlainStart(const Family& f, const char* w) {
  CursorStart st;
  if (CountsAsNull(f, w)) return st;
  st.at = CursorStart::At::kKey;
  st.key = w;
  if (f.def().cursor_key == CursorKey::kKey && !MakeKey(f, w, &st.key)) st.at = CursorStart::At::kEnd;
  st.filter = st.at == CursorStart::At::kKey ? st.key : w;
  return st;
}

// The start of the OC with an order number: the pattern's fixed beginning is sought.
CursorStart PatternStart(const Family& f, const char* w) {
  CursorStart st;
  if (CountsAsNull(f, w) || w[0] == '*') return st;
  st.at = CursorStart::At::kKey;
  st.key = Trimmed(w);
  st.key.resize(std::min(st.key.find('?'), st.key.size()));
  st.key.resize(std::min(st.key.find('*'), st.key.size()));
  st.filter = w;
  const std::size_t len = st.filter.size();
  if (len < f.column(f.def().key_column).len && (len == 0 || w[len - 1] != '?')) st.filter += '*';
  return st;
}

void GoToStart(_CURSOR_SD* c, const CursorStart& st) {
  if (c->lpNdx == nullptr || st.at == CursorStart::At::kTop) {
    d4top(c->lpDb);  // a table without index cannot seek: it starts at its first record
  } else if (st.at == CursorStart::At::kEnd) {
    d4goEof(c->lpDb);
  } else {
    (void)d4seek(c->lpDb, st.key.c_str());  // stands at the first key at or after the text
  }
}

bool DeleteCurrent(DATA4St* db) {
  if (!LockCurrent(db)) return false;  // held by another process: it stays
  d4delete(db);
  return true;
}

// True when the current record's key in tag `t` begins with `key`.
bool CarriesKey(TAG4St* t, const std::string& key) {
  if (t == nullptr) return false;
  const std::string_view k(t4keyOfRecord(t), static_cast<std::size_t>(t4keyLen(t)));
  return k.substr(0, key.size()) == key;
}

// What a write cursor replaces goes before its first WC (WriteOpen::kDeleteToEnd, kDeleteKeyRun),
// from the start position on. True when records went; the table is packed then.
bool ClearForWrite(const Family& f, _CURSOR_SD* c, const CursorStart& st) {
  DATA4St* db = c->lpDb;
  const WriteOpen w = f.def().write_open;
  if (w != WriteOpen::kDeleteToEnd && !(w == WriteOpen::kDeleteKeyRun && st.at == CursorStart::At::kKey))
    return false;
  TAG4St* tag = d4tagSelected(db);
  bool removed = false;
  while (!d4eof(db) && (w == WriteOpen::kDeleteToEnd || CarriesKey(tag, st.key))) {
    if (DeleteCurrent(db)) removed = true;
    if (d4skip(db, 1) != 0) break;
  }
  // Packing needs the table alone; with another opener the records stay marked, out of every tag
  // filtered on .NOT. DELETED().
  if (removed) (void)d4pack(db);
  return removed;
}

// WriteOpen::kDeleteFiles: the index goes first (every opener of the family holds it, so a table
// in use stops the removal before anything went), then the extra file, the table last; each
// through the guarded removal, which refuses a file that another opener holds, this process
// included. A refusal stops the cursor, and OC answers 6 as for a table it cannot open: the old
// records are still there, and a cursor that appended to them would double them. Should the index
// be gone by then and the table not, the next open builds the index again from the records; no
// record is lost.
bool RemoveTableFiles(const Family& f, const _SELECT_SD* s) {
  const char* dir = f.Path(s);
  std::vector<std::string> files;
  if (f.def().index_name != nullptr) files.push_back(JoinPath(dir, f.def().index_name, ".CDX"));
  if (f.def().extra_file != nullptr) files.push_back(JoinPath(dir, f.def().extra_file));
  files.push_back(JoinPath(dir, f.def().db_name, ".DBF"));
  for (const std::string& file : files) {
    const Status st = platform::RemoveFile(file);
    if (!st.ok() && !st.IsNotFound()) return false;
  }
  return true;
}

// The common steps of the opening operations: files, table and index, order, start, clearing,
// filter. `tag` null keeps the order the index opened with.
long OpenWith(const Family& f, _SELECT_SD* s, const char* tag, const CursorStart& st, _CURSOR_SD** cursor,
              int access) {
  if (f.def().deletes_fetched) f.fetch_mark() = {};
  const bool writing = access == 1;
  if (writing && f.def().write_open == WriteOpen::kDeleteKeyRun && st.at == CursorStart::At::kTop) {
    *cursor = nullptr;  // a cursor that replaces one key's records needs the key
    return KVD_S_NOT_FOUND;
  }
  if (writing && f.def().write_open == WriteOpen::kDeleteFiles && !RemoveTableFiles(f, s)) {
    *cursor = nullptr;
    return KVD_S_OPEN_TABLE;
  }
  const long status = OpenCursorTables(f, s, cursor, access);
  if (status != KVD_S_OK) return status;
  _CURSOR_SD* c = *cursor;
  if (tag != nullptr) d4tagSelect(c->lpDb, d4tag(c->lpDb, tag));  // a tag the index lacks: record order
  GoToStart(c, st);
  if (writing && ClearForWrite(f, c, st)) GoToStart(c, st);
  StoreWildcard(c, st.filter.c_str());
  return KVD_S_OK;
}

// Record <- current table record, trimmed unless the family's FC gives the text as stored.
void ReadFetched(const Family& f, DATA4St* db, void* rec, Fill fill) {
  BufferToRecord(f, db, rec, fill);
  if (f.def().fetch_trims) TrimRecord(f, rec, fill);
}

// FetchFilter::kPrefix: the current record carries the cursor's prefix.
bool HasPrefix(const Family& f, _CURSOR_SD* c) {
  FIELD4St* fld = f.def().prefix_column != nullptr ? d4field(c->lpDb, f.def().prefix_column) : nullptr;
  if (fld == nullptr) return false;
  const std::size_t wanted = f.def().prefix_width > 0 ? static_cast<std::size_t>(f.def().prefix_width)
                                                     : std::strlen(c->szWildcard);
  const std::size_t width = std::min<std::size_t>(wanted, f4len(fld));
  return std::strncmp(f4ptr(fld), c->szWildcard, width) == 0;
}

}  // namespace

namespace {
std::vector<const Family*>& Registry() {
  static std::vector<const Family*> families;
  return families;
}
}  // namespace

const std::vector<const Family*>& AllFamilies() { return Registry(); }

const Family* FindFamily(const char* name) {
  for (const Family* f : Registry())
    if (strcasecmp(f->def().name, name) == 0) return f;
  return nullptr;
}

std::size_t RecordSize(const Family& f) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < f.def().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    size = std::max(size, c.offset + c.size);
  }
  return size;
}

Family::Family(const FamilyDef& def) : def_(def) {
  Registry().push_back(this);
  fields_.reserve(def.column_count + 1);
  for (std::size_t i = 0; i < def.column_count; ++i) {
    const Column& c = def.columns[i];
    fields_.push_back(FIELD4INFO{c.name, static_cast<short>(c.type), c.len, c.dec, 0});
  }
  fields_.push_back(FIELD4INFO{nullptr, 0, 0, 0, 0});
  for (std::size_t i = 0; i < def.column_count; ++i) {
    const Column& c = def.columns[i];
    const bool trims = c.conv == Conv::kText && c.trim;
    for (Fill fill : {Fill::kFull, Fill::kBrief}) {
      if (!Wanted(c, fill)) continue;
      (fill == Fill::kFull ? full_ : brief_).push_back(static_cast<int>(i));
      if (trims) (fill == Fill::kFull ? full_trim_ : brief_trim_).push_back(static_cast<int>(i));
    }
  }
}

void BufferToRecord(const Family& f, DATA4St* db, void* rec, Fill fill) {
  FIELD4St* const* fields = ColumnFields(f, db);
  for (const int i : f.filled(fill)) {
    const Column& c = f.column(i);
    FIELD4St* fld = fields[i];
    char* m = Member(rec, c);
    switch (c.conv) {
      case Conv::kText: f4ncpy(fld, m, static_cast<unsigned>(c.size)); break;
      case Conv::kChar: *m = static_cast<char>(f4char(fld)); break;
      case Conv::kInt: {
        const int v = f4int(fld);
        std::memcpy(m, &v, sizeof v);
        break;
      }
      case Conv::kInt32: {
        const std::int32_t v = static_cast<std::int32_t>(f4long(fld));
        std::memcpy(m, &v, sizeof v);
        break;
      }
      case Conv::kFlagTF: {
        const int v = f4char(fld) == 'T' ? 1 : 0;
        std::memcpy(m, &v, sizeof v);
        break;
      }
      default: ReadValue(c, fld, m); break;
    }
  }
}

void RecordToBuffer(const Family& f, DATA4St* db, const void* rec) {
  FIELD4St* const* fields = ColumnFields(f, db);
  for (std::size_t i = 0; i < f.def().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    FIELD4St* fld = fields[i];
    const char* m = Member(rec, c);
    switch (c.conv) {
      case Conv::kText: f4assignN(fld, m, static_cast<unsigned>(strnlen(m, c.size))); break;
      case Conv::kChar: f4assignChar(fld, *m); break;
      case Conv::kInt: {
        int v;
        std::memcpy(&v, m, sizeof v);
        f4assignInt(fld, v);
        break;
      }
      case Conv::kInt32: {
        std::int32_t v;
        std::memcpy(&v, m, sizeof v);
        f4assignLong(fld, v);
        break;
      }
      case Conv::kFlagTF: {
        int v;
        std::memcpy(&v, m, sizeof v);
        f4assignChar(fld, v > 0 ? 'T' : 'F');
        break;
      }
      default: WriteValue(c, fld, m); break;
    }
  }
}

void TrimRecord(const Family& f, void* rec, Fill fill) {
  for (const int i : f.trimmed(fill)) KvRTrim(KvLTrim(Member(rec, f.column(i))));
}

long FamilyRead(const Family& f, _SELECT_SD* s, const char* name, void* rec) {
  OpenCall call(f, s, 0);
  if (call.status() != KVD_S_OK) return call.status();
  SelectKeyTag(f, call.db());
  std::string key;
  if (!MakeKey(f, name, &key) || d4seek(call.db(), key.c_str()) != 0) return KVD_S_NOT_FOUND;
  BufferToRecord(f, call.db(), rec, Fill::kFull);
  TrimRecord(f, rec, Fill::kFull);
  return KVD_S_OK;
}

long FamilyInsert(const Family& f, _SELECT_SD* s, void* rec) {
  OpenCall call(f, s, f.def().insert_access);
  if (call.status() != KVD_S_OK) return call.status();
  SelectKeyTag(f, call.db());
  std::string key;
  if (!MakeKey(f, KeyOf(f, rec).c_str(), &key)) return KVD_S_NOT_FOUND;
  if (d4seek(call.db(), key.c_str()) == 0) return f.def().duplicate_status;
  if (f.def().access_column >= 0) SetAccessLetter(f, rec, 'E');
  if (d4appendStart(call.db(), 0) != 0) return KVD_S_OPEN_TABLE;
  d4blank(call.db());
  RecordToBuffer(f, call.db(), rec);
  // A refused append (a unique key, a full disk) must not pass for a stored record.
  return d4append(call.db()) == 0 ? KVD_S_OK : KVD_S_OPEN_TABLE;
}

namespace {

// U of a family that changes one column of an existing record (update_column).
long UpdateOneColumn(const Family& f, DATA4St* db, const void* rec) {
  std::string key;
  if (!MakeKey(f, KeyOf(f, rec).c_str(), &key) || d4seek(db, key.c_str()) != 0) return KVD_S_NOT_FOUND;
  if (!LockCurrent(db)) return KVD_S_OPEN_TABLE;
  const int i = f.def().update_column;
  const Column& c = f.column(i);
  FIELD4St* fld = FieldOf(db, c, i);
  const char* m = Member(rec, c);
  if (c.conv == Conv::kText) {
    f4assignN(fld, m, static_cast<unsigned>(strnlen(m, c.size)));
  } else {
    WriteValue(c, fld, m);
  }
  return d4flush(db) == 0 ? KVD_S_OK : KVD_S_OPEN_TABLE;
}

}  // namespace

long FamilyUpdate(const Family& f, _SELECT_SD* s, const void* rec) {
  OpenCall call(f, s, 1);
  if (call.status() != KVD_S_OK) return call.status();
  SelectKeyTag(f, call.db());
  if (f.def().update_column >= 0) return UpdateOneColumn(f, call.db(), rec);
  // The private copy, with the listed members padded to their columns.
  std::vector<char> copy(static_cast<const char*>(rec), static_cast<const char*>(rec) + RecordSize(f));
  for (std::size_t i = 0; i < f.def().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    if (c.conv == Conv::kText && c.pad) {
      char* m = Member(copy.data(), c);
      m[c.size - 1] = '\0';
      KvFillBlank(m, c.len);
    }
  }
  std::string key;
  if (!MakeKey(f, KeyOf(f, copy.data()).c_str(), &key)) return KVD_S_NOT_FOUND;
  const bool found = d4seek(call.db(), key.c_str()) == 0;
  if (found) {
    if (!LockCurrent(call.db())) return KVD_S_OPEN_TABLE;
  } else {
    if (d4appendStart(call.db(), 0) != 0) return KVD_S_OPEN_TABLE;
    d4blank(call.db());
  }
  RecordToBuffer(f, call.db(), copy.data());
  if (!found && d4append(call.db()) != 0) return KVD_S_OPEN_TABLE;
  // The close writes the changed record; a write the engine refuses is reported.
  return d4flush(call.db()) == 0 ? KVD_S_OK : KVD_S_OPEN_TABLE;
}

long FamilyDelete(const Family& f, _SELECT_SD* s, const char* name, char* file, int max_file) {
  OpenCall call(f, s, 1);
  if (call.status() != KVD_S_OK) return call.status();
  SelectKeyTag(f, call.db());
  std::string key;
  if (!MakeKey(f, name, &key) || d4seek(call.db(), key.c_str()) != 0) return KVD_S_NOT_FOUND;
  if (file != nullptr && max_file > 0) f4ncpy(d4field(call.db(), "FILENAME"), file, static_cast<unsigned>(max_file));
  if (!LockCurrent(call.db())) return KVD_S_OPEN_TABLE;
  d4delete(call.db());
  if (d4flush(call.db()) != 0) return KVD_S_OPEN_TABLE;
  // Packing needs the table alone; while another program has it open the record stays marked and
  // out of every tag filtered on .NOT. DELETED(), and the next delete's pack removes it.
  (void)d4pack(call.db());
  return KVD_S_OK;
}

long FamilyOpenCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor, int access) {
  return OpenWith(f, s, f.def().key_tag, PlainStart(f, wildcard), cursor, access);
}

long FamilyOpenSecondCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor,
                            int access) {
  const char* tag = f.def().second_tag;
  if (tag == nullptr && f.def().tags != nullptr && f.def().tags[0].name != nullptr) tag = f.def().tags[1].name;
  return OpenWith(f, s, tag, PlainStart(f, wildcard), cursor, access);
}

long FamilyOpenTagCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor,
                         int access, int tag) {
  const TagChoice& choice = f.def().tag_choice;
  return OpenWith(f, s, tag == choice.id_number ? choice.id_tag : choice.other_tag, PatternStart(f, wildcard),
                  cursor, access);
}

long FamilyOpenAccessCursor(const Family& f, _SELECT_SD* s, const char* letters, _CURSOR_SD** cursor,
                            int access, bool import) {
  if (import && f.def().import_db_name == nullptr) import = false;  // a family without an import table
  const long status = OpenCursorTables(f, s, cursor, access, import);
  if (status != KVD_S_OK) return status;
  _CURSOR_SD* c = *cursor;
  d4tagSelect(c->lpDb, d4tag(c->lpDb, "ACCESS"));
  d4top(c->lpDb);
  StoreWildcard(c, letters);
  if (letters != nullptr && std::strlen(letters) <= 1 && letters[0] != '*') (void)d4seek(c->lpDb, letters);
  // A write cursor replaces the records of its letters: they go before the first WC. Without a set
  // there is nothing to replace, and nothing is removed.
  if (access == 1 && letters != nullptr) {
    FIELD4St* fld = d4field(c->lpDb, f.column(f.def().access_column).name);
    bool removed = false;
    while (!d4eof(c->lpDb)) {
      if (InSet(letters, static_cast<char>(f4char(fld)))) {
        if (LockCurrent(c->lpDb)) {
          d4delete(c->lpDb);
          removed = true;
        }
      }
      if (d4skip(c->lpDb, 1) != 0) break;
    }
    if (removed) (void)d4pack(c->lpDb);
    d4top(c->lpDb);  // a defined place after the pack: the start of the access order
  }
  return KVD_S_OK;
}

long FamilyFetch(const Family& f, _CURSOR_SD* c, void* rec, Fill fill) {
  if (c == nullptr || d4eof(c->lpDb)) return KVD_S_NOT_FOUND;
  const FetchFilter filter = c->szWildcard[0] != '\0' ? f.def().fetch_filter : FetchFilter::kNone;
  // The prefix ends the run: the cursor stays on the first record that lacks it.
  if (filter == FetchFilter::kPrefix && !HasPrefix(f, c)) return KVD_S_NOT_FOUND;
  const bool filtered = filter == FetchFilter::kWild && c->szWildcard[0] != '*';
  for (;;) {
    if (f.def().deletes_fetched) f.fetch_mark().rec_no = d4recNo(c->lpDb);
    ReadFetched(f, c->lpDb, rec, fill);
    d4skip(c->lpDb, 1);
    if (!filtered) return KVD_S_OK;
    std::string key = f.def().wild_on_stored_key ? StoredKey(f, rec) : KeyOf(f, rec);
    if (CompareWild(c->szWildcard, key.data()) == 0) return KVD_S_OK;
    if (d4eof(c->lpDb)) return KVD_S_NOT_FOUND;  // the record holds the last one rejected
  }
}

long FamilyFetchAccess(const Family& f, _CURSOR_SD* c, void* rec) {
  if (f.def().deletes_fetched) f.fetch_mark().rec_no = 0;  // DC deletes only what FC gave
  if (c == nullptr || d4eof(c->lpDb)) return KVD_S_NOT_FOUND;
  const bool filtered = c->szWildcard[0] != '\0' && c->szWildcard[0] != '*';
  for (;;) {
    ReadFetched(f, c->lpDb, rec, Fill::kFull);
    d4skip(c->lpDb, 1);
    if (!filtered || InSet(c->szWildcard, AccessLetter(f, rec))) return KVD_S_OK;
    if (d4eof(c->lpDb)) return KVD_S_NOT_FOUND;
  }
}

long FamilyWrite(const Family& f, _CURSOR_SD* c, const void* rec) {
  if (c == nullptr || d4appendStart(c->lpDb, 0) != 0) return KVD_S_COPY;
  d4blank(c->lpDb);
  RecordToBuffer(f, c->lpDb, rec);
  return d4append(c->lpDb) == 0 ? KVD_S_OK : KVD_S_COPY;
}

long FamilyWriteAccess(const Family& f, _CURSOR_SD* c, const void* rec) {
  if (c == nullptr || !InSet(c->szWildcard, AccessLetter(f, rec))) return KVD_S_COPY;
  return FamilyWrite(f, c, rec);
}

long FamilyWriteImported(const Family& f, _CURSOR_SD* c, void* rec) {
  SetAccessLetter(f, rec, 'I');
  return FamilyWrite(f, c, rec);
}

long FamilyDeleteImported(const Family& f, _SELECT_SD* s) {
  OpenCall call(f, s, 0);
  if (call.status() != KVD_S_OK) return call.status();
  DATA4St* db = call.db();
  FIELD4St* fld = d4field(db, f.column(f.def().access_column).name);
  bool removed = false;
  for (d4top(db); !d4eof(db);) {
    if (f4char(fld) == 'I' && LockCurrent(db)) {
      d4delete(db);
      removed = true;
    }
    if (d4skip(db, 1) != 0) break;
  }
  if (removed) (void)d4pack(db);
  return KVD_S_OK;
}

long FamilySeekCursor(const Family& f, _CURSOR_SD* c, void* rec) {
  if (c == nullptr) return KVD_S_NOT_FOUND;
  if (f.def().seek_pads_member) {  // the caller's member is the key buffer: padded where it stands
    const Column& k = f.column(f.def().key_column);
    char* m = Member(rec, k);
    m[k.size - 1] = '\0';
    KvFillBlank(m, k.len);
  }
  std::string key;
  if (!MakeKey(f, KeyOf(f, rec).c_str(), &key) || d4seek(c->lpDb, key.c_str()) != 0) return KVD_S_NOT_FOUND;
  BufferToRecord(f, c->lpDb, rec, Fill::kFull);
  TrimRecord(f, rec, Fill::kFull);
  return KVD_S_OK;
}

long FamilyDeleteFetched(const Family& f, _CURSOR_SD* c) {
  Family::FetchMark& mark = f.fetch_mark();
  if (c == nullptr || mark.rec_no < 1) return KVD_S_NOT_FOUND;
  DATA4St* db = c->lpDb;
  const bool at_end = d4eof(db) != 0;
  const long back = d4recNo(db);
  d4go(db, mark.rec_no);
  // A record another process holds past the engine's wait stays, and DC answers 6 as every write of
  // the families does that cannot be made.
  const bool deleted = DeleteCurrent(db);
  if (deleted) mark.deleted = true;
  // Back to the record the next FC reads. The end is gone to directly rather than by a long skip,
  // which would fall short in a table with more records behind the deleted one than it skips.
  if (at_end) {
    d4goEof(db);
  } else {
    d4go(db, back);
  }
  return deleted ? KVD_S_OK : KVD_S_OPEN_TABLE;
}

long FamilyCloseCursor(_CURSOR_SD* c) {
  if (c == nullptr) return KVD_S_OK;
  d4close(c->lpDb);
  std::free(c);
  return KVD_S_OK;
}

long FamilyCloseCursor(const Family& f, _CURSOR_SD* c) {
  if (f.def().deletes_fetched) {
    if (c != nullptr && f.fetch_mark().deleted) (void)d4pack(c->lpDb);  // needs the table alone
    f.fetch_mark() = {};
  }
  return FamilyCloseCursor(c);
}

long FamilyCheck(const Family& f, _SELECT_SD* s, char* msg, int max_msg) {
  if (s == nullptr || msg == nullptr) return KVD_S_NO_SELECTION;
  const int where = f.def().check_in_project ? 1 : 0;
  if (f.def().import_db_name == nullptr) return CheckDBStructure(s, f.def().db_name, f.fields(), msg, max_msg, where);
  // The import table first, then the family's own: both report into the message, and the own
  // table's status comes first.
  const int imported = CheckDBStructure(s, f.def().import_db_name, f.fields(), msg, max_msg, where);
  const int own = CheckDBStructure(s, f.def().db_name, f.fields(), msg, max_msg, where);
  return own != KVD_S_OK ? own : imported;
}

std::string StoredKey(const Family& f, const void* rec) {
  std::string k = StoredForm(f.column(f.def().key_column), rec);
  if (f.def().key_column2 >= 0) k += StoredForm(f.column(f.def().key_column2), rec);
  return k;
}

long FamilyFetchWhole(const Family& f, _CURSOR_SD* c, void* rec) {
  if (c == nullptr || d4eof(c->lpDb)) return KVD_S_NOT_FOUND;
  ReadFetched(f, c->lpDb, rec, Fill::kFull);
  d4skip(c->lpDb, 1);
  return KVD_S_OK;
}

bool MaskPasses(std::uint32_t w, std::uint32_t m) {
  return (w & m & 0x000FFF00u) != 0 && (w & m & 0x8000007Fu) != 0 && ((m & 0x80u) == 0 || (w & 0x80u) != 0);
}

namespace {

std::uint32_t CursorMask(const _CURSOR_SD* c) {
  std::uint32_t m;
  std::memcpy(&m, c->szWildcard, sizeof m);
  return m;
}

// The word of the current row: the family's mask columns or-ed.
std::uint32_t RowWord(const Family& f, DATA4St* db) {
  std::uint32_t w = 0;
  for (const char* name : f.def().mask_columns)
    if (name != nullptr) w |= Kvf4hex(d4field(db, name));
  return w;
}

// On from the current row to the first that passes the cursor's mask, or to the end.
void SkipToPassing(const Family& f, _CURSOR_SD* c) {
  const std::uint32_t m = CursorMask(c);
  while (!d4eof(c->lpDb) && !MaskPasses(RowWord(f, c->lpDb), m))
    if (d4skip(c->lpDb, 1) != 0) break;
}

}  // namespace

long FamilyOpenMaskCursor(const Family& f, _SELECT_SD* s, std::uint32_t mask, _CURSOR_SD** cursor, int access) {
  const long status = OpenCursorTables(f, s, cursor, access);
  if (status != KVD_S_OK) return status;
  _CURSOR_SD* c = *cursor;
  SelectKeyTag(f, c->lpDb);
  d4top(c->lpDb);
  std::memcpy(c->szWildcard, &mask, sizeof mask);
  SkipToPassing(f, c);
  return KVD_S_OK;  // also when no row passes: the first FC answers 1
}

long FamilyFetchMasked(const Family& f, _CURSOR_SD* c, void* rec) {
  if (c == nullptr || d4eof(c->lpDb)) return KVD_S_NOT_FOUND;
  ReadFetched(f, c->lpDb, rec, Fill::kFull);
  d4skip(c->lpDb, 1);
  if (f.def().mask_lift == 0 || CursorMask(c) != f.def().mask_lift) SkipToPassing(f, c);
  return KVD_S_OK;
}

}  // namespace kvd::frame
