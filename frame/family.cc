#include "frame/family.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/kernel.h"
#include "lib/foundation/kvtext.h"

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

// The key text for a seek, made from `name` by the family's rule into `key` (room for the key
// column's width and the terminator). False when the name cannot be a key of this table: a name
// longer than the key column matches no record.
bool MakeKey(const Family& f, const char* name, std::string* key) {
  const unsigned width = f.column(f.spec().key_column).len;
  std::string k = name != nullptr ? name : "";
  if (f.spec().key_rule == KeyRule::kTrim) {
    std::vector<char> buf(k.begin(), k.end());
    buf.push_back('\0');
    KvLTrim(KvRTrim(buf.data()));
    k = buf.data();
  }
  if (k.size() > width) return false;
  if (f.spec().key_rule == KeyRule::kPad) k.resize(width, ' ');
  *key = std::move(k);
  return true;
}

// The key member of a record as a terminated text (the caller may have filled the member to the
// last byte).
std::string KeyOf(const Family& f, const void* rec) {
  const Column& c = f.column(f.spec().key_column);
  const char* m = Member(rec, c);
  return std::string(m, strnlen(m, c.size));
}

void SelectKeyTag(const Family& f, DATA4St* db) {
  if (f.spec().key_tag != nullptr) d4tagSelect(db, d4tag(db, f.spec().key_tag));
}

// The table and index of one call, closed when it ends.
class OpenCall {
 public:
  OpenCall(const Family& f, _SELECT_SD* s, int access) {
    db_ = OpenTable(s, f.Path(s), f.spec().db_name, f.fields(), access);
    if (db_ == nullptr) {
      status_ = KVD_S_OPEN_TABLE;
      return;
    }
    if (OpenIndex(s, f.Path(s), f.spec().index_name, db_, f.spec().tags) == nullptr) {
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

char AccessLetter(const Family& f, const void* rec) { return *Member(rec, f.column(f.spec().access_column)); }
void SetAccessLetter(const Family& f, void* rec, char letter) {
  *Member(rec, f.column(f.spec().access_column)) = letter;
}
bool InSet(const char* set, char letter) { return letter != '\0' && std::strchr(set, letter) != nullptr; }

// A write lock on the current record. A write whose lock cannot be had (another process holds the
// record past the engine's wait) would be refused by the engine and lost without a word; the
// operation answers 6 instead, as for a table it cannot work on.
bool LockCurrent(DATA4St* db) { return d4lock(db, d4recNoLow(db)) == 0; }

_CURSOR_SD* NewCursor() { return static_cast<_CURSOR_SD*>(std::calloc(1, sizeof(_CURSOR_SD))); }

// Opens the cursor's table and index; on failure frees the cursor and answers 6 or 7.
long OpenCursorTables(const Family& f, _SELECT_SD* s, _CURSOR_SD** out, int access) {
  _CURSOR_SD* c = NewCursor();
  *out = c;
  if (c == nullptr) return KVD_S_NO_MEMORY;
  c->lpDb = OpenTable(s, f.Path(s), f.spec().db_name, f.fields(), access);
  long status = KVD_S_OK;
  if (c->lpDb == nullptr) {
    status = KVD_S_OPEN_TABLE;
  } else {
    c->lpNdx = OpenIndex(s, f.Path(s), f.spec().index_name, c->lpDb, f.spec().tags);
    if (c->lpNdx == nullptr) {
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
    if (strcasecmp(f->spec().name, name) == 0) return f;
  return nullptr;
}

std::size_t RecordSize(const Family& f) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < f.spec().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    size = std::max(size, c.offset + c.size);
  }
  return size;
}

Family::Family(const FamilySpec& spec) : spec_(spec) {
  Registry().push_back(this);
  fields_.reserve(spec.column_count + 1);
  for (std::size_t i = 0; i < spec.column_count; ++i) {
    const Column& c = spec.columns[i];
    fields_.push_back(FIELD4INFO{c.name, static_cast<short>(c.type), c.len, c.dec, 0});
  }
  fields_.push_back(FIELD4INFO{nullptr, 0, 0, 0, 0});
}

void BufferToRecord(const Family& f, DATA4St* db, void* rec, Fill fill) {
  for (std::size_t i = 0; i < f.spec().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    if (!Wanted(c, fill)) continue;
    FIELD4St* fld = FieldOf(db, c, static_cast<int>(i));
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
    }
  }
}

void RecordToBuffer(const Family& f, DATA4St* db, const void* rec) {
  for (std::size_t i = 0; i < f.spec().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    FIELD4St* fld = FieldOf(db, c, static_cast<int>(i));
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
    }
  }
}

void TrimRecord(const Family& f, void* rec, Fill fill) {
  for (std::size_t i = 0; i < f.spec().column_count; ++i) {
    const Column& c = f.column(static_cast<int>(i));
    if (c.conv == Conv::kText && c.trim && Wanted(c, fill)) KvRTrim(KvLTrim(Member(rec, c)));
  }
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
  OpenCall call(f, s, f.spec().insert_access);
  if (call.status() != KVD_S_OK) return call.status();
  SelectKeyTag(f, call.db());
  std::string key;
  if (!MakeKey(f, KeyOf(f, rec).c_str(), &key)) return KVD_S_NOT_FOUND;
  if (d4seek(call.db(), key.c_str()) == 0) return f.spec().duplicate_status;
  if (f.spec().access_column >= 0) SetAccessLetter(f, rec, 'E');
  if (d4appendStart(call.db(), 0) != 0) return KVD_S_OPEN_TABLE;
  d4blank(call.db());
  RecordToBuffer(f, call.db(), rec);
  // A refused append (a unique key, a full disk) must not pass for a stored record.
  return d4append(call.db()) == 0 ? KVD_S_OK : KVD_S_OPEN_TABLE;
}

long FamilyUpdate(const Family& f, _SELECT_SD* s, const void* rec) {
  OpenCall call(f, s, 1);
  if (call.status() != KVD_S_OK) return call.status();
  SelectKeyTag(f, call.db());
  // The private copy, with the listed members padded to their columns.
  std::vector<char> copy(static_cast<const char*>(rec), static_cast<const char*>(rec) + RecordSize(f));
  for (std::size_t i = 0; i < f.spec().column_count; ++i) {
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
  const long status = OpenCursorTables(f, s, cursor, access);
  if (status != KVD_S_OK) return status;
  _CURSOR_SD* c = *cursor;
  SelectKeyTag(f, c->lpDb);
  if (wildcard == nullptr) {
    d4top(c->lpDb);
  } else {
    (void)d4seek(c->lpDb, wildcard);  // stands at the first key at or after the pattern's text
  }
  StoreWildcard(c, wildcard);
  return KVD_S_OK;
}

long FamilyOpenAccessCursor(const Family& f, _SELECT_SD* s, const char* letters, _CURSOR_SD** cursor,
                            int access) {
  const long status = OpenCursorTables(f, s, cursor, access);
  if (status != KVD_S_OK) return status;
  _CURSOR_SD* c = *cursor;
  d4tagSelect(c->lpDb, d4tag(c->lpDb, "ACCESS"));
  d4top(c->lpDb);
  StoreWildcard(c, letters);
  if (letters != nullptr && std::strlen(letters) <= 1 && letters[0] != '*') (void)d4seek(c->lpDb, letters);
  // A write cursor replaces the records of its letters: they go before the first WC. Without a set
  // there is nothing to replace, and nothing is removed.
  if (access == 1 && letters != nullptr) {
    FIELD4St* fld = d4field(c->lpDb, f.column(f.spec().access_column).name);
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
  const bool filtered = f.spec().fetch_filter == FetchFilter::kWild && c->szWildcard[0] != '\0' &&
                        c->szWildcard[0] != '*';
  for (;;) {
    BufferToRecord(f, c->lpDb, rec, fill);
    TrimRecord(f, rec, fill);
    d4skip(c->lpDb, 1);
    if (!filtered) return KVD_S_OK;
    std::string key = KeyOf(f, rec);
    if (CompareWild(c->szWildcard, key.data()) == 0) return KVD_S_OK;
    if (d4eof(c->lpDb)) return KVD_S_NOT_FOUND;  // the record holds the last one rejected
  }
}

long FamilyFetchAccess(const Family& f, _CURSOR_SD* c, void* rec) {
  if (c == nullptr || d4eof(c->lpDb)) return KVD_S_NOT_FOUND;
  const bool filtered = c->szWildcard[0] != '\0' && c->szWildcard[0] != '*';
  for (;;) {
    BufferToRecord(f, c->lpDb, rec, Fill::kFull);
    TrimRecord(f, rec, Fill::kFull);
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
  FIELD4St* fld = d4field(db, f.column(f.spec().access_column).name);
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
  std::string key;
  if (!MakeKey(f, KeyOf(f, rec).c_str(), &key) || d4seek(c->lpDb, key.c_str()) != 0) return KVD_S_NOT_FOUND;
  BufferToRecord(f, c->lpDb, rec, Fill::kFull);
  TrimRecord(f, rec, Fill::kFull);
  return KVD_S_OK;
}

long FamilyCloseCursor(_CURSOR_SD* c) {
  if (c == nullptr) return KVD_S_OK;
  d4close(c->lpDb);
  std::free(c);
  return KVD_S_OK;
}

long FamilyCheck(const Family& f, _SELECT_SD* s, char* msg, int max_msg) {
  if (s == nullptr || msg == nullptr) return KVD_S_NO_SELECTION;
  return CheckDBStructure(s, f.spec().db_name, f.fields(), msg, max_msg, 0);
}

}  // namespace kvd::frame
