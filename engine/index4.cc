// Index files and tags in the life of a table: open, create, seek, walk, keep current.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "engine/d4all.h"
#include "engine/data4_impl.h"
#include "engine/number.h"
#include "engine/table_names.h"
#include "engine/temp_name.h"
#include "platform/ascii.h"
#include "platform/file.h"
#include "platform/path.h"

namespace kvd::engine {

namespace {

CdxTree TreeOf(TAG4St* t) { return CdxTree(t->index->file->Store(t->pos)); }

CdxKeyFormat FormatFor(const Expr& e) {
  return CdxKeyFormat{e.key_length(), static_cast<unsigned char>(e.type() == ExprType::kChar ? ' ' : 0)};
}

bool EqualNoCase(std::string_view a, std::string_view b) { return kvd::platform::EqualNoCaseAscii(a, b); }

// Runs `f` with the index's read lock.
template <typename F>
int UnderReadLock(DATA4St* d, INDEX4St* ix, F f) {
  Status s = ix->file->LockRead(d->code->lockAttempts, d->code->lockDelay);
  if (!s.ok()) return SetError(d->code, s.IsBusy() ? e4lock : e4index, s);
  int rc = f();
  ix->file->UnlockRead();
  return rc;
}

// Runs the descent `g(tree)` of tag t, which places t->walk from nothing (a seek, the first or
// last entry), and records its counter. A file this process reads through its mapping is
// descended without the lock first; when a writer was at work meanwhile, or the descent failed
// (it may have read half-written pages), it is done again under the lock, which alone reports.
template <typename G>
int Descend(DATA4St* d, TAG4St* t, G g) {
  CdxFile& f = *t->index->file;
  std::uint32_t counter = 0;
  if (f.BeginUnlocked(&counter)) {
    t->counter = counter;
    CdxTree tree = TreeOf(t);
    if (g(tree).ok() && f.StillAt(counter)) {
      t->walk_valid = true;
      return 0;
    }
  }
  return UnderReadLock(d, t->index, [&] {
    t->counter = f.Counter();
    CdxTree tree = TreeOf(t);
    Status s = g(tree);
    t->walk_valid = s.ok();
    return s.ok() ? 0 : SetError(d->code, ErrorFor(s, e4index), s);
  });
}

bool InTag(TAG4St* t, const char* record, std::uint32_t rec) {
  return !t->filter || t->filter->EvalLogical(ExprRecord{record, rec});
}

std::string KeyOf(TAG4St* t, const char* record, std::uint32_t rec) {
  std::string k;
  t->expr->EvalKey(ExprRecord{record, rec}, &k);
  return k;
}

// Makes TAG4St objects for every tag of an open file; fails when an expression cannot be read.
int AdoptIndex(DATA4St* d, std::unique_ptr<CdxFile> file, const std::string& name, INDEX4St** out) {
  auto ix = std::make_unique<INDEX4St>();
  ix->data = d;
  ix->name = name;
  const auto& layout = d->dbf->fields();
  for (std::size_t i = 0; i < file->tags().size(); ++i) {
    const CdxFile::Tag& ft = file->tags()[i];
    auto t = std::make_unique<TAG4St>();
    t->index = ix.get();
    t->pos = i;
    t->name = ft.def.name;
    Status s = Expr::Parse(ft.def.expression, layout, &t->expr);
    if (s.ok() && !ft.def.filter.empty()) s = Expr::Parse(ft.def.filter, layout, &t->filter);
    if (!s.ok()) return SetError(d->code, e4index, "tag " + t->name + " of " + name + ": " + s.ToString());
    if (t->filter && t->filter->type() != ExprType::kLogical)
      return SetError(d->code, e4index, "tag " + t->name + " of " + name + ": filter is not a condition");
    const CdxKeyFormat fmt = FormatFor(*t->expr);
    if (fmt.key_len != ft.def.fmt.key_len)
      return SetError(d->code, e4index, "tag " + t->name + " of " + name + ": key length disagrees with its expression");
    file->SetFormat(i, fmt);
    t->unique = ft.def.unique ? (ft.def.unique_continue ? r4uniqueContinue : e4unique) : 0;
    t->descending = ft.def.descending;
    ix->tags.push_back(std::move(t));
  }
  ix->file = std::move(file);
  *out = ix.get();
  d->indexes.push_back(std::move(ix));
  return 0;
}

// The key to look for: a character key as given (shorter is a prefix), other kinds converted.
std::string SeekKey(TAG4St* t, std::string_view given, bool* prefix) {
  *prefix = false;
  unsigned char buf[8];
  switch (t->expr->type()) {
    case ExprType::kChar: {
      std::string k(given.substr(0, t->expr->key_length()));
      *prefix = k.size() < t->expr->key_length();
      return k;
    }
    case ExprType::kNumeric:
      EncodeNumberKey(ParseDouble(given), buf);
      return std::string(reinterpret_cast<char*>(buf), 8);
    case ExprType::kDate: {
      std::string_view g = given;
      while (!g.empty() && g.front() == ' ') g.remove_prefix(1);
      EncodeNumberKey(static_cast<double>(DateToJulian(g)), buf);
      return std::string(reinterpret_cast<char*>(buf), 8);
    }
    case ExprType::kInteger:
      EncodeIntegerKey(ParseLong(given), buf);
      return std::string(reinterpret_cast<char*>(buf), 4);
    case ExprType::kLogical: {
      const char c = given.empty() ? 'F' : static_cast<char>(std::toupper(static_cast<unsigned char>(given[0])));
      return std::string(1, c == 'T' || c == 'Y' ? 'T' : 'F');
    }
  }
  return std::string(given);
}

bool Matches(const CdxPosition& p, const std::string& key) {
  return p.valid && p.entry().key.compare(0, key.size(), key) == 0;
}

// Puts the table on the walk's entry, or at the end when the walk left the tag.
int Land(DATA4St* d, TAG4St* t) {
  // No count is read here: the end reads it (d4goEof), and reading a record checks its number
  // against the table as it is now, so a step costs no extra system call.
  if (!t->walk.valid) {
    d4goEof(d);
    return r4eof;
  }
  const int rc = LoadRecord(d, t->walk.entry().recno);
  d->eof = d->bof = false;
  return rc;
}

}  // namespace

// ---- keeping tags current -------------------------------------------------------------------

int IndexPrepare(DATA4St* d, std::uint32_t rec, const char* old_record, const char* new_record, IndexPlan* plan) {
  plan->changes.clear();
  plan->locked.clear();
  // What changes follows from the two records alone and reads no index: worked out before any lock.
  // A write that changes no tag (most updates) then leaves every index alone, unlocked.
  for (auto& ix : d->indexes) {
    for (auto& t : ix->tags) {
      IndexPlan::Change c{t.get(), false, false, {}, {}};
      const bool was_in = old_record && InTag(t.get(), old_record, rec);
      const bool now_in = InTag(t.get(), new_record, rec);
      if (was_in) c.old_key = KeyOf(t.get(), old_record, rec);
      if (now_in) c.new_key = KeyOf(t.get(), new_record, rec);
      if (was_in && now_in && c.old_key == c.new_key) continue;
      c.remove = was_in;
      c.insert = now_in;
      if (c.remove || c.insert) plan->changes.push_back(std::move(c));
    }
  }
  if (plan->changes.empty()) return 0;
  // Every index is locked, in the table's order, before the unique tags are searched.
  for (auto& ix : d->indexes) {
    Status s = ix->file->BeginWrite(d->code->lockAttempts, d->code->lockDelay);
    if (!s.ok()) {
      IndexAbort(plan);
      return SetError(d->code, s.IsBusy() ? e4lock : ErrorFor(s, e4index), s);
    }
    plan->locked.push_back(ix.get());
  }
  for (IndexPlan::Change& c : plan->changes) {
    TAG4St* t = c.tag;
    if (!c.insert || !t->unique) continue;
    CdxTree tree = TreeOf(t);
    CdxPosition pos;
    Status s = tree.LowerBound(c.new_key, 0, &pos);
    if (!s.ok()) {
      IndexAbort(plan);
      return SetError(d->code, ErrorFor(s, e4index), s);
    }
    const bool taken = pos.valid && pos.entry().key == c.new_key && pos.entry().recno != rec;
    if (taken && t->unique == e4unique) {
      IndexAbort(plan);
      return SetError(d->code, e4unique, "duplicate key in unique tag " + t->name + " of " + t->index->name);
    }
    // Unique that goes on: the record keeps out of the tag; only the first holder of a key is in it.
    if (taken) c.insert = false;
  }
  std::erase_if(plan->changes, [](const IndexPlan::Change& c) { return !c.remove && !c.insert; });
  return 0;
}

int IndexCommit(DATA4St* d, std::uint32_t rec, IndexPlan* plan) {
  int rc = 0;
  std::vector<INDEX4St*> marked;
  for (IndexPlan::Change& c : plan->changes) {
    INDEX4St* ix = c.tag->index;
    if (std::find(marked.begin(), marked.end(), ix) == marked.end()) {
      marked.push_back(ix);
      Status m = ix->file->MarkChanging();
      if (!m.ok() && rc == 0) rc = SetError(d->code, ErrorFor(m, e4index), m);
    }
    CdxTree tree = TreeOf(c.tag);
    Status s;
    if (c.remove) {
      bool found = false;
      s = tree.Remove(c.old_key, rec, &found);
    }
    if (s.ok() && c.insert) s = tree.Insert(c.new_key, rec);
    if (!s.ok() && rc == 0) rc = SetError(d->code, ErrorFor(s, e4index), s);
  }
  IndexAbort(plan);
  return rc;
}

void IndexAbort(IndexPlan* plan) {
  for (INDEX4St* ix : plan->locked) ix->file->EndWrite();
  plan->locked.clear();
}

// Builds every tag of `ix` from the records. Refuses duplicates in e4unique tags when `strict`.
static int BuildIndex(DATA4St* d, INDEX4St* ix, bool strict) {
  std::uint32_t count = 0;
  Status s = d->dbf->RecordCount(&count);
  if (!s.ok()) return SetError(d->code, ErrorFor(s, e4read), s);
  std::vector<std::vector<CdxEntry>> entries(ix->tags.size());
  std::vector<char> rec(d->dbf->record_len());
  std::string key;
  for (std::uint32_t r = 1; r <= count; ++r) {
    s = d->dbf->ReadRecord(r, rec.data());
    if (!s.ok()) return SetError(d->code, ErrorFor(s, e4read), s);
    for (std::size_t i = 0; i < ix->tags.size(); ++i) {
      TAG4St* t = ix->tags[i].get();
      if (!InTag(t, rec.data(), r)) continue;
      t->expr->EvalKey(ExprRecord{rec.data(), r}, &key);
      entries[i].push_back(CdxEntry{key, r, 0});
    }
  }
  for (std::size_t i = 0; i < ix->tags.size(); ++i) {
    TAG4St* t = ix->tags[i].get();
    auto& e = entries[i];
    // Records were read in record order, so a stable sort by key keeps duplicates in record order.
    std::stable_sort(e.begin(), e.end(), [](const CdxEntry& a, const CdxEntry& b) { return a.key < b.key; });
    if (t->unique) {
      auto dup = std::adjacent_find(e.begin(), e.end(), [](const CdxEntry& a, const CdxEntry& b) { return a.key == b.key; });
      if (dup != e.end() && strict && t->unique == e4unique)
        return SetError(d->code, e4unique, "records with one key for unique tag " + t->name);
      e.erase(std::unique(e.begin(), e.end(), [](const CdxEntry& a, const CdxEntry& b) { return a.key == b.key; }), e.end());
    }
    s = ix->file->BuildTag(i, e);
    if (!s.ok()) return SetError(d->code, ErrorFor(s, e4index), s);
    t->walk_valid = false;
  }
  return 0;
}

int ReindexAll(DATA4St* d) {
  for (auto& ix : d->indexes) {
    Status s = ix->file->BeginWrite(d->code->lockAttempts, d->code->lockDelay);
    if (!s.ok()) return SetError(d->code, s.IsBusy() ? e4lock : e4index, s);
    const int rc = BuildIndex(d, ix.get(), false);
    ix->file->EndWrite();
    if (rc) return rc;
  }
  return 0;
}

int OpenProductionIndex(DATA4St* d) {
  if (!d->code->autoOpen || !d->dbf->HasProductionIndex()) return 0;
  const std::string name = ProductionIndexName(d->name);
  if (!kvd::platform::FileExists(name)) return 0;  // the flag outlived its file: the table stays usable
  return i4open(d, name.c_str()) ? 0 : d->code->errorCode;
}

// ---- walking in tag order -------------------------------------------------------------------

int TagTop(DATA4St* d, bool bottom) {
  TAG4St* t = d->selected;
  const bool last = bottom != t->descending;
  int rc = Descend(d, t, [&](CdxTree& tree) { return last ? tree.Last(&t->walk) : tree.First(&t->walk); });
  if (rc) return rc;
  rc = Land(d, t);
  if (rc == r4eof) d->bof = true;
  return rc;
}

// One step of the walk from the table's current record, `forward` in tag order.
static int Step(DATA4St* d, TAG4St* t, bool forward) {
  const bool up = forward != t->descending;  // direction in key order
  CdxFile& f = *t->index->file;
  if (t->walk_valid && t->walk.valid && t->walk.entry().recno == d->rec_no && f.CounterIs(t->counter)) {
    // Inside the copied leaf nothing needs the file.
    if (up && t->walk.index + 1 < t->walk.leaf.entries.size()) {
      ++t->walk.index;
      return 0;
    }
    if (!up && t->walk.index > 0) {
      --t->walk.index;
      return 0;
    }
  }
  return UnderReadLock(d, t->index, [&] {
    CdxTree tree = TreeOf(t);
    Status s;
    if (t->walk_valid && t->walk.valid && t->counter == f.Counter() && t->walk.entry().recno == d->rec_no) {
      s = up ? tree.Next(&t->walk) : tree.Prev(&t->walk);
    } else {
      // Find the place again from the record's own key: it may have left the tag (deleted under a
      // filter) or moved (its key changed); the walk goes on from where it would stand.
      const std::string key = KeyOf(t, d->record.data(), d->rec_no);
      t->counter = f.Counter();
      if (up) {
        s = tree.LowerBound(key, d->rec_no, &t->walk);
        if (s.ok() && t->walk.valid && t->walk.entry().recno == d->rec_no && t->walk.entry().key == key)
          s = tree.Next(&t->walk);
      } else {
        s = tree.UpperBoundPrev(key, d->rec_no, &t->walk);
        if (s.ok() && t->walk.valid && t->walk.entry().recno == d->rec_no && t->walk.entry().key == key)
          s = tree.Prev(&t->walk);
      }
    }
    t->walk_valid = s.ok();
    return s.ok() ? 0 : SetError(d->code, ErrorFor(s, e4index), s);
  });
}

int TagSkip(DATA4St* d, long n) {
  TAG4St* t = d->selected;
  if (n == 0) return 0;
  if (d->eof && n > 0) return r4eof;
  if (d->eof || d->rec_no == 0) {
    // From the end (or from nowhere) the walk starts at the last (first) entry.
    int rc = TagTop(d, n < 0);
    if (rc) return rc;
    n += n < 0 ? 1 : -1;
  }
  const bool forward = n > 0;
  for (long i = 0; i < (forward ? n : -n); ++i) {
    if (int rc = Step(d, t, forward)) return rc;
    if (!t->walk.valid) break;
    d->rec_no = t->walk.entry().recno;  // so that the next step finds its place in the copy
  }
  if (!t->walk.valid && !forward) {
    int rc = TagTop(d, false);
    if (rc) return rc;
    d->bof = true;
    return r4bof;
  }
  return Land(d, t);
}

}  // namespace kvd::engine

using namespace kvd::engine;
using kvd::Status;

extern "C" {

INDEX4St* i4open(DATA4St* d, const char* name) {
  if (!d) return nullptr;
  const std::string path = name && *name ? WithExtension(name, ".CDX") : ProductionIndexName(d->name);
  for (auto& ix : d->indexes)
    if (ix->name == path) return ix.get();
  std::unique_ptr<CdxFile> file;
  Status s = CdxFile::Open(path, d->dbf->read_only(), d->dbf->exclusive(), &file);
  if (!s.ok()) {
    if (s.IsNotFound() && !d->code->errOpen) return nullptr;
    SetError(d->code, s.IsNotFound() ? e4open : ErrorFor(s, e4index) == e4data ? e4index : ErrorFor(s, e4index), s);
    return nullptr;
  }
  INDEX4St* ix = nullptr;
  if (AdoptIndex(d, std::move(file), path, &ix)) return nullptr;
  return ix;
}

INDEX4St* i4create(DATA4St* d, const char* name, const TAG4INFO* tags) {
  if (!d || !tags || !tags[0].name) {
    if (d) SetError(d->code, e4parm, "i4create without tags");
    return nullptr;
  }
  if (d->dbf->read_only()) return SetError(d->code, e4readOnly, "table opened read only"), nullptr;
  const std::string path = name && *name ? WithExtension(name, ".CDX") : ProductionIndexName(d->name);
  if (int rc = FlushRecord(d)) return (void)rc, nullptr;
  // The definitions first: nothing is written when one of them is bad.
  std::vector<CdxTagDef> defs;
  for (const TAG4INFO* t = tags; t->name; ++t) {
    CdxTagDef def;
    def.name = t->name;
    if (def.name.empty() || def.name.size() > cdx::kTagNameLen)
      return SetError(d->code, e4tagName, "tag name must have 1 to 10 characters: '" + def.name + "'"), nullptr;
    def.expression = t->expression ? t->expression : "";
    def.filter = t->filter ? t->filter : "";
    std::unique_ptr<Expr> e, f;
    Status s = Expr::Parse(def.expression, d->dbf->fields(), &e);
    if (s.ok() && !def.filter.empty()) s = Expr::Parse(def.filter, d->dbf->fields(), &f);
    if (!s.ok()) return SetError(d->code, e4expr, "tag " + def.name + ": " + s.ToString()), nullptr;
    if (f && f->type() != ExprType::kLogical)
      return SetError(d->code, e4expr, "tag " + def.name + ": the filter is not a condition"), nullptr;
    if (e->key_length() == 0 || e->key_length() > cdx::kMaxKeyLen)
      return SetError(d->code, e4expr, "tag " + def.name + ": key longer than 240 bytes"), nullptr;
    def.fmt = FormatFor(*e);
    def.unique = t->unique != 0;
    def.unique_continue = t->unique == r4uniqueContinue;
    def.descending = t->descending != 0;
    defs.push_back(std::move(def));
  }
  // An index of this name that this table has open is closed first: it is being replaced.
  for (auto it = d->indexes.begin(); it != d->indexes.end(); ++it) {
    if ((*it)->name != path) continue;
    for (auto& t : (*it)->tags)
      if (d->selected == t.get()) d->selected = nullptr;
    d->indexes.erase(it);
    break;
  }
  // Built aside, then put in place of any old file (refused while another opener holds it).
  const std::string tmp = TempNameBeside(path, "cdx");
  std::unique_ptr<CdxFile> file;
  Status s = CdxFile::CreateEmpty(tmp, defs, &file);
  if (!s.ok()) {
    kvd::platform::RemoveFile(tmp);
    return SetError(d->code, ErrorFor(s, e4create), s), nullptr;
  }
  INDEX4St* ix = nullptr;
  int rc = AdoptIndex(d, std::move(file), tmp, &ix);
  if (rc == 0) {
    for (std::size_t i = 0; i < defs.size(); ++i)
      ix->tags[i]->unique = defs[i].unique ? (defs[i].unique_continue ? r4uniqueContinue : e4unique) : 0;
    rc = BuildIndex(d, ix, /*strict=*/true);
  }
  // The index leaves the table's list and the temporary file is closed before the rename.
  if (ix) d->indexes.erase(std::find_if(d->indexes.begin(), d->indexes.end(), [ix](auto& p) { return p.get() == ix; }));
  if (rc) {
    kvd::platform::RemoveFile(tmp);
    return nullptr;
  }
  s = kvd::platform::ReplaceFile(tmp, path);
  if (!s.ok()) {
    kvd::platform::RemoveFile(tmp);
    return SetError(d->code, e4create, s), nullptr;
  }
  if (EqualNoCase(path, ProductionIndexName(d->name))) d->dbf->SetProductionIndex(true);
  return i4open(d, path.c_str());
}

int i4close(INDEX4St* ix) {
  if (!ix) return 0;
  DATA4St* d = ix->data;
  for (auto& t : ix->tags)
    if (d->selected == t.get()) d->selected = nullptr;
  d->indexes.erase(std::find_if(d->indexes.begin(), d->indexes.end(), [ix](auto& p) { return p.get() == ix; }));
  return 0;
}

int i4reindex(INDEX4St* ix) {
  if (!ix) return e4parm;
  DATA4St* d = ix->data;
  if (int rc = FlushRecord(d)) return rc;
  Status s = ix->file->BeginWrite(d->code->lockAttempts, d->code->lockDelay);
  if (!s.ok()) return SetError(d->code, s.IsBusy() ? e4lock : e4index, s);
  const int rc = BuildIndex(d, ix, false);
  ix->file->EndWrite();
  return rc;
}

const char* i4fileName(INDEX4St* ix) { return ix ? ix->name.c_str() : ""; }

INDEX4St* d4index(DATA4St* d, const char* name) {
  if (!d || !name || !*name) return nullptr;
  const std::string_view want = kvd::platform::NamePart(name);
  const bool with_ext = want.find('.') != std::string_view::npos;
  for (auto& ix : d->indexes) {
    const std::string_view have = with_ext ? kvd::platform::NamePart(ix->name) : AliasOf(ix->name);
    if (EqualNoCase(have, want)) return ix.get();
  }
  return nullptr;
}

TAG4St* d4tag(DATA4St* d, const char* name) {
  if (!d || !name) return nullptr;
  std::string_view want(name);
  while (!want.empty() && want.back() == ' ') want.remove_suffix(1);
  for (auto& ix : d->indexes)
    for (auto& t : ix->tags)
      if (EqualNoCase(t->name, want)) return t.get();
  return nullptr;
}

TAG4St* d4tagDefault(DATA4St* d) {
  if (!d) return nullptr;
  for (auto& ix : d->indexes)
    if (!ix->tags.empty()) return ix->tags.front().get();
  return nullptr;
}

TAG4St* d4tagNext(DATA4St* d, TAG4St* tag) {
  if (!d) return nullptr;
  bool take = tag == nullptr;
  for (auto& ix : d->indexes)
    for (auto& t : ix->tags) {
      if (take) return t.get();
      if (t.get() == tag) take = true;
    }
  return nullptr;
}

void d4tagSelect(DATA4St* d, TAG4St* tag) {
  if (!d) return;
  d->selected = tag && tag->index->data == d ? tag : nullptr;
  if (d->selected) d->selected->walk_valid = false;
}

TAG4St* d4tagSelected(DATA4St* d) { return d ? d->selected : nullptr; }

int d4tagSync(DATA4St* d, TAG4St* tag) {
  if (!d || !tag) return e4parm;
  tag->walk_valid = false;  // the next move finds its place from the current record
  return 0;
}

int d4seekN(DATA4St* d, const char* key, short len) {
  if (!d || !key) return e4parm;
  TAG4St* t = d->selected ? d->selected : d4tagDefault(d);
  if (!t) return SetError(d->code, e4tagName, "seek without a tag: " + d->name);
  if (int rc = FlushRecord(d)) return rc;
  if (d->state == BufferState::kAppending) d->state = BufferState::kClean;
  bool prefix = false;
  const std::string k = SeekKey(t, std::string_view(key, len < 0 ? 0 : static_cast<std::size_t>(len)), &prefix);
  int rc = Descend(d, t, [&](CdxTree& tree) {
    return t->descending ? tree.UpperBoundPrev(k, 0xFFFFFFFF, &t->walk) : tree.LowerBound(k, 0, &t->walk);
  });
  if (rc) return rc;
  const bool hit = Matches(t->walk, k);
  rc = Land(d, t);
  if (rc) return rc;
  return hit ? 0 : r4after;
}

int d4seek(DATA4St* d, const char* key) {
  return d4seekN(d, key, key ? static_cast<short>(std::min<std::size_t>(std::strlen(key), 0x7FFF)) : 0);
}

int d4seekDouble(DATA4St* d, double value) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.17g", value);
  return d4seek(d, buf);
}

int d4seekNext(DATA4St* d, const char* key) {
  if (!d || !key) return e4parm;
  TAG4St* t = d->selected ? d->selected : d4tagDefault(d);
  if (!t) return SetError(d->code, e4tagName, "seek without a tag: " + d->name);
  bool prefix = false;
  const std::string k = SeekKey(t, key, &prefix);
  if (d->eof || d->rec_no == 0 || KeyOf(t, d->record.data(), d->rec_no).compare(0, k.size(), k) != 0)
    return d4seek(d, key);
  TAG4St* saved = d->selected;
  d->selected = t;
  int rc = TagSkip(d, 1);
  d->selected = saved;
  if (rc < 0) return rc;
  if (rc == r4eof) return r4eof;
  return Matches(t->walk, k) ? 0 : r4after;
}

const char* t4alias(TAG4St* t) { return t ? t->name.c_str() : ""; }
const char* t4expr(TAG4St* t) { return t ? t->expr->source().c_str() : ""; }
const char* t4filter(TAG4St* t) { return t && t->filter ? t->filter->source().c_str() : ""; }
int t4unique(TAG4St* t) { return t ? t->unique : 0; }
int t4descending(TAG4St* t) { return t ? t->descending : 0; }
int t4keyLen(TAG4St* t) { return t ? static_cast<int>(t->expr->key_length()) : 0; }

const char* t4keyOfRecord(TAG4St* t) {
  if (!t) return "";
  DATA4St* d = t->index->data;
  t->key = KeyOf(t, d->record.data(), d->rec_no);
  return t->key.c_str();
}

}  // extern "C"
