// The table handle of the catalogue calls, their keys and dates, and the list cursors.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "catalogue/catalogue.h"
#include "frame/kernel.h"
#include "lib/foundation/kvtext.h"

namespace kvd::catalogue {

long CallTable::Open(_SELECT_SD* s, const char* dir, const char* name, const FIELD4INFO* def, const TAG4INFO* tags,
                     int access) {
  Close();
  db_ = frame::OpenTable(s, dir, name, def, access);
  if (db_ == nullptr) return KVD_S_OPEN_TABLE;
  if (tags != nullptr && frame::OpenIndex(s, dir, name, db_, tags) == nullptr) {
    Close();
    return KVD_S_OPEN_INDEX;
  }
  return KVD_S_OK;
}

bool CallTable::Seek(const char* name) {
  std::string key;
  if (!CatalogueKey(name, &key)) return false;
  return d4seek(db_, key.c_str()) == 0;
}

std::string CallTable::Text(const char* field) const {
  FIELD4St* f = d4field(db_, field);
  if (f == nullptr) return "";
  std::vector<char> buf(f4len(f) + 1);
  f4ncpy(f, buf.data(), static_cast<unsigned>(buf.size()));
  return KvLTrim(KvRTrim(buf.data()));
}

// The frame answers 6 for a change whose lock cannot be had, rather than lose it without a word;
// the catalogue does the same.
bool CallTable::LockCurrent() { return d4lock(db_, d4recNoLow(db_)) == 0; }

bool CallTable::DeleteCurrent() {
  if (!LockCurrent()) return false;
  d4delete(db_);
  // The pack needs the table alone; with another reader it fails, and the record stays marked.
  (void)d4pack(db_);
  return true;
}

void CallTable::Close() {
  d4close(db_);
  db_ = nullptr;
}

bool CatalogueKey(const char* name, std::string* key) {
  std::string k = name != nullptr ? name : "";
  while (!k.empty() && k.back() == ' ') k.pop_back();  // trailing blanks are the padding anyway
  if (k.size() > 8) return false;  // no key of the catalogue: the field has 8 characters
  k.resize(8, ' ');
  *key = std::move(k);
  return true;
}

std::string Today() {
  char buf[9] = {};
  date4today(buf);
  return buf;
}

void FormatDate(const char* ccyymmdd, char out[9]) {
  char buf[16] = {};
  date4format(ccyymmdd, buf, "DD.MM.YY");
  KvRTrim(buf);
  std::snprintf(out, 9, "%s", buf);
}

std::vector<std::string> AllNames(DATA4St* db) {
  std::vector<std::string> names;
  TAG4St* tag = d4tagSelected(db);
  d4tagSelect(db, nullptr);  // record order: each record once
  FIELD4St* f = d4field(db, "NAME");
  for (int rc = d4top(db); rc == 0 && !d4eof(db); rc = d4skip(db, 1)) {
    if (d4deleted(db) || f == nullptr) continue;
    char buf[16] = {};
    f4ncpy(f, buf, sizeof buf);
    names.emplace_back(KvLTrim(KvRTrim(buf)));
  }
  d4tagSelect(db, tag);
  return names;
}

long ReadList(_SELECT_SD* s, const char* dir, const char* db_name, const FIELD4INFO* def, const TAG4INFO* tags,
              std::vector<ListRow>* rows) {
  rows->clear();
  CallTable t;
  if (long st = t.Open(s, dir, db_name, def, tags, 0); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  d4tagSelect(db, nullptr);
  FIELD4St* name = d4field(db, "NAME");
  FIELD4St* descr = d4field(db, "BEZEICH");
  struct Keyed {
    std::string key;  // NAME as stored, blank-padded: the order of the name tag
    ListRow row;
  };
  std::vector<Keyed> all;
  for (int rc = d4top(db); rc == 0 && !d4eof(db); rc = d4skip(db, 1)) {
    if (d4deleted(db)) continue;
    char n[16] = {}, b[48] = {};
    if (name != nullptr) f4ncpy(name, n, sizeof n);
    if (descr != nullptr) f4ncpy(descr, b, sizeof b);
    Keyed k{n, {}};
    k.row.name = KvLTrim(KvRTrim(n));
    k.row.descr = KvLTrim(KvRTrim(b));
    all.push_back(std::move(k));
  }
  // std::string compares its bytes unsigned, as the index orders its keys.
  std::stable_sort(all.begin(), all.end(), [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
  for (Keyed& k : all) rows->push_back(std::move(k.row));
  return KVD_S_OK;
}

namespace {

// The caller holds a pointer to `base`; the rows stay behind it until the closing call. A
// standard-layout struct, so the two pointers convert into each other.
struct ListCursor {
  _CURSOR_SD base;
  std::vector<ListRow>* rows;
  std::size_t next;
};
static_assert(std::is_standard_layout_v<ListCursor>);

}  // namespace

_CURSOR_SD* NewListCursor(std::vector<ListRow> rows) {
  auto* c = static_cast<ListCursor*>(std::calloc(1, sizeof(ListCursor)));
  if (c == nullptr) return nullptr;
  c->rows = new (std::nothrow) std::vector<ListRow>(std::move(rows));
  if (c->rows == nullptr) {
    std::free(c);
    return nullptr;
  }
  return &c->base;
}

bool NextListRow(_CURSOR_SD* cursor, const ListRow** row) {
  auto* c = reinterpret_cast<ListCursor*>(cursor);
  if (c == nullptr || c->rows == nullptr || c->next >= c->rows->size()) return false;
  *row = &(*c->rows)[c->next++];
  return true;
}

void FreeListCursor(_CURSOR_SD* cursor) {
  auto* c = reinterpret_cast<ListCursor*>(cursor);
  if (c == nullptr) return;
  delete c->rows;
  std::free(c);
}

}  // namespace kvd::catalogue
