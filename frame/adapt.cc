// Structure adaption: the comparison, the copy into __DBTEMP and the replace (see adapt.h).
#include "frame/adapt.h"

#include <array>
#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include "engine/table_names.h"
#include "platform/ascii.h"
#include "platform/file.h"
#include "platform/path.h"

namespace kvd::frame {
namespace {

char Upper(int c) { return platform::AsciiUpper(static_cast<char>(c)); }

bool SameName(const char* a, const char* b) {
  for (; *a != '\0' && *b != '\0'; ++a, ++b)
    if (Upper(*a) != Upper(*b)) return false;
  return *a == *b;
}

// Fields whose record bytes point into the memo file: M, and G, P and the 10-byte B of other
// programs' tables.
bool IsMemoType(int type, unsigned long len) {
  return type == 'M' || type == 'G' || type == 'P' || (type == 'B' && len == 10);
}

// Whether the file's field has the shape the definition row asks for. The file's type letter is
// upper case already; the definition's may not be.
bool SameShape(FIELD4St* have, const FIELD4INFO& want) {
  const char type = Upper(want.type);
  if (f4type(have) != type) return false;
  switch (type) {
    case 'C':
      return f4len(have) == want.len;
    case 'L':
    case 'D':
    case 'M':
    case 'G':
    case 'P':
      return true;  // one width per type: whatever the definition says, the file has that one
    default:        // N, F and what the engine cannot create
      return f4len(have) == want.len && f4decimals(have) == want.dec;
  }
}

// Compares the table's fields with `wanted`. With `map`, fills map[i] with the 1-based position of
// the file's field of wanted[i]'s name (0: none) and walks the whole list; without, stops at the
// first difference. Reads only the descriptors the open table holds.
bool Compare(DATA4St* d, std::span<const FIELD4INFO> wanted, std::vector<short>* map) {
  const int n = d4numFields(d);
  if (map != nullptr) map->assign(wanted.size(), 0);
  bool differs = static_cast<int>(wanted.size()) != n;
  if (differs && map == nullptr) return true;
  std::array<bool, 256> used{};  // a table has at most 255 fields
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const FIELD4INFO& w = wanted[i];
    int found = 0;
    // The field at the same place first: mostly the file was written from this very definition.
    const int same_place = static_cast<int>(i) + 1;
    if (same_place <= n && SameName(f4name(d4fieldJ(d, static_cast<short>(same_place))), w.name)) {
      found = same_place;
    } else {
      for (int j = 1; j <= n && found == 0; ++j)
        if (!used[static_cast<std::size_t>(j)] && SameName(f4name(d4fieldJ(d, static_cast<short>(j))), w.name))
          found = j;
    }
    if (found == 0 || used[static_cast<std::size_t>(found)]) {  // missing, or a name given twice
      differs = true;
      if (map == nullptr) return true;
      continue;
    }
    used[static_cast<std::size_t>(found)] = true;
    if (map != nullptr) (*map)[i] = static_cast<short>(found);
    if (!SameShape(d4fieldJ(d, static_cast<short>(found)), w)) {
      differs = true;
      if (map == nullptr) return true;
    }
  }
  return differs;
}

// The record's value of `from` into `to`, the same field of the new table.
//   memo -> M:            the exact bytes, NULs and all.
//   same type and width:  the field's bytes as they stand (a C field may hold raw binary bytes).
//   memo -> C, L, D:      the memo's first bytes up to the new width, blank-padded; N and F: the
//                         number the memo's text begins with. A memo is mostly a text that was moved
//                         out of a field; taking it back keeps its beginning, which holds most.
//   C, N, F, L, D -> M:   the field's text without the blanks that only filled its width (trailing
//                         ones, and for N and F the leading ones of the right-aligned number).
//   anything else:        f4assignField converts between types and cuts or pads to the new width.
void CopyField(FIELD4St* to, FIELD4St* from) {
  const int to_type = f4type(to);
  const int from_type = f4type(from);
  const bool from_memo = IsMemoType(from_type, f4len(from));
  if (to_type == 'M' && from_memo) {
    const unsigned len = f4memoLen(from);
    f4memoAssignN(to, f4memoPtr(from), len);
    return;
  }
  if (!from_memo && to_type == from_type && f4len(to) == f4len(from) && f4decimals(to) == f4decimals(from)) {
    f4assignN(to, f4ptr(from), static_cast<unsigned>(f4len(from)));
    return;
  }
  f4assignField(to, from);
  if (to_type == 'M') {
    const unsigned len = f4memoLen(to);
    const std::string text(f4memoPtr(to), len);
    std::size_t begin = 0, end = text.size();
    while (end > begin && text[end - 1] == ' ') --end;
    if (from_type == 'N' || from_type == 'F')
      while (begin < end && text[begin] == ' ') ++begin;
    if (begin != 0 || end != text.size())
      f4memoAssignN(to, text.data() + begin, static_cast<unsigned>(end - begin));
  }
}

std::string ExtensionOf(std::string_view table) {
  const std::string_view name = platform::NamePart(table);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? std::string(".DBF") : std::string(name.substr(dot));
}

bool HasExtension(std::string_view path, std::string_view ext) {
  const std::string_view name = platform::NamePart(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  const std::string_view have = name.substr(dot);
  if (have.size() != ext.size()) return false;
  for (std::size_t i = 0; i < ext.size(); ++i)
    if (Upper(have[i]) != Upper(ext[i])) return false;
  return true;
}

// An engine failure as a status, with the engine's own account of it.
Status EngineFailure(Code4& code, std::string_view what, int rc) {
  const std::string msg = std::string(what) + " (" + std::to_string(rc) + "): " + error4lastDetail(&code);
  return rc == e4exclusive || rc == r4locked ? Status::Busy(msg) : Status::IoError(msg);
}

// One rebuild, from the directory's guard to the replace; see adapt.h for the order of things.
class Rebuild {
 public:
  Rebuild(Data4& data, std::span<const FIELD4INFO> wanted, Code4& code, const AdaptOptions& options)
      : data_(data), old_(data.dat()), wanted_(wanted), code_(code), options_(options),
        table_(d4fileName(old_)), dir_(platform::DirPart(table_)),
        temp_(dir_ + "__DBTEMP" + ExtensionOf(table_)),
        temp_memo_(engine::MemoNameFor(temp_, engine::MemoKind::kFpt)) {}

  Status Run(bool* rebuilt) {
    std::vector<short> map;
    Compare(old_, wanted_, &map);

    // The guard makes the names __DBTEMP.* in this directory ours until it goes.
    std::unique_ptr<platform::DirectoryLock> guard;
    KVD_RETURN_IF_ERROR(platform::DirectoryLock::Acquire(dir_, options_.guard_wait_ms, &guard));
    // Alone from here to the close: no one can change a record we have copied, nor hold the old
    // files open when the new ones take their names.
    if (const int rc = d4accessAlone(old_, 1); rc != 0) return EngineFailure(code_, "table held by another opener", rc);
    saved_rec_ = d4recNo(old_);
    saved_eof_ = d4eof(old_) != 0;

    if (Status s = MakeTemp(); !s.ok()) return Fail(s);
    if (Status s = CopyRecords(map); !s.ok()) return Fail(s);
    if (Status s = RemoveStaleIndexes(); !s.ok()) return Fail(s);

    const std::string old_memo = d4memoFileName(old_);  // host path, "" when none
    bool new_has_memo = false;
    for (const FIELD4INFO& f : wanted_) new_has_memo |= Upper(f.type) == 'M';
    bool committed = false;
    Status s = engine::ReplaceTablePair(temp_, new_has_memo ? temp_memo_ : std::string(), table_, &committed,
                                        /*table_has_memo=*/!old_memo.empty());
    if (!committed) return Fail(s);
    // The new table is the table now (if the last rename failed, the next open completes it). Our
    // open of the old files goes; then an old memo that the new table does not use.
    data_.close();
    if (!old_memo.empty() && (!new_has_memo || !HasExtension(old_memo, ".FPT"))) (void)platform::RemoveFile(old_memo);
    *rebuilt = true;
    return Status::Ok();
  }

 private:
  Status MakeTemp() {
    // What a rebuild that died left under these names is ours to throw away (we hold the guard).
    for (const std::string& name : {temp_, temp_memo_}) {
      Status s = platform::RemoveFile(name);
      if (!s.ok() && !s.IsNotFound()) return s;
    }
    std::vector<FIELD4INFO> rows(wanted_.begin(), wanted_.end());
    for (FIELD4INFO& r : rows) r.nulls = 0;
    rows.push_back(FIELD4INFO{nullptr, 0, 0, 0, 0});
    temp_open_ = d4create(&code_, temp_.c_str(), rows.data(), nullptr);
    if (temp_open_ == nullptr) return EngineFailure(code_, "temporary table " + temp_ + " not made", code_.errorCode);
    // Held whole, the new records wait in memory and go to the file in long runs.
    if (const int rc = d4lockAll(temp_open_); rc != 0) return EngineFailure(code_, "lock " + temp_, rc);
    return Status::Ok();
  }

  Status CopyRecords(const std::vector<short>& map) {
    DATA4St* tmp = temp_open_;
    const long count = d4recCount(old_);
    if (count < 0) return EngineFailure(code_, "count of " + table_, static_cast<int>(count));
    long copied = 0;
    // d4go walks record order whatever tag the caller selected, and visits deleted records.
    for (long r = 1; r <= count; ++r) {
      if (const int rc = d4go(old_, r); rc != 0) return EngineFailure(code_, "read of " + table_, rc);
      if (d4deleted(old_)) continue;
      if (const int rc = d4appendStart(tmp, 0); rc != 0) return EngineFailure(code_, "append to " + temp_, rc);
      d4blank(tmp);
      for (std::size_t i = 0; i < map.size(); ++i)
        if (map[i] != 0) CopyField(d4fieldJ(tmp, static_cast<short>(i + 1)), d4fieldJ(old_, map[i]));
      // A memo that could not be read copies as empty: never let that pass as a copy.
      if (code_.errorCode < 0) return EngineFailure(code_, "record " + std::to_string(r) + " of " + table_, code_.errorCode);
      if (const int rc = d4append(tmp); rc != 0) return EngineFailure(code_, "append to " + temp_, rc);
      ++copied;
    }
    if (const int rc = d4unlock(tmp); rc != 0) return EngineFailure(code_, "write of " + temp_, rc);
    const long made = d4recCount(tmp);
    if (made != copied)
      return Status::IoError(temp_ + " holds " + std::to_string(made) + " records, " + std::to_string(copied) + " copied");
    temp_open_ = nullptr;
    if (const int rc = d4close(tmp); rc != 0) return EngineFailure(code_, "close of " + temp_, rc);
    return Status::Ok();
  }

  // Before the replace: a crash after it must not find an index of the old records beside the new.
  Status RemoveStaleIndexes() {
    std::vector<std::string> names{engine::ProductionIndexName(table_)};
    for (std::string_view n : options_.index_files) {
      if (n.empty()) continue;
      const std::string path = platform::DirPart(n).empty() ? dir_ + std::string(n) : std::string(n);
      names.push_back(engine::WithExtension(path, ".CDX"));
    }
    for (const std::string& name : names) {
      if (INDEX4St* open = d4index(old_, name.c_str())) i4close(open);  // our own open would refuse the removal
      Status s = platform::RemoveFile(name);
      if (!s.ok() && !s.IsNotFound()) return s;
    }
    return Status::Ok();
  }

  // Back to where the call began: no temporary files, the table shared again, at its record.
  Status Fail(Status why) {
    if (temp_open_ != nullptr) d4close(temp_open_);
    temp_open_ = nullptr;
    (void)platform::RemoveFile(temp_);
    (void)platform::RemoveFile(temp_memo_);
    d4accessAlone(old_, 0);
    if (saved_eof_) d4goEof(old_);
    else d4go(old_, saved_rec_);  // record 0: the blank buffer of a table not yet positioned
    return why;
  }

  Data4& data_;
  DATA4St* old_;                       // the caller's open table
  std::span<const FIELD4INFO> wanted_;
  Code4& code_;
  const AdaptOptions& options_;
  const std::string table_;            // its name as opened, with extension
  const std::string dir_;              // its directory as written, with separator ("" for none)
  const std::string temp_;             // <dir>__DBTEMP<table's extension>
  const std::string temp_memo_;        // its memo, <dir>__DBTEMP.FPT (.fpt for a lower-case extension)
  DATA4St* temp_open_ = nullptr;       // the temporary table while it is being filled
  long saved_rec_ = 0;                 // the caller's position
  bool saved_eof_ = false;
};

}  // namespace

bool StructureDiffers(Data4& data, std::span<const FIELD4INFO> wanted) {
  return Compare(data.dat(), wanted, nullptr);
}

Status AdaptTable(Data4& data, std::span<const FIELD4INFO> wanted, Code4& code, const AdaptOptions& options,
                  bool* rebuilt) {
  *rebuilt = false;
  if (!data.isValid()) return Status::InvalidArgument("adapt without an open table");
  if (!StructureDiffers(data, wanted)) return Status::Ok();
  if (wanted.empty()) return Status::InvalidArgument(std::string("adapt to a definition without fields: ") + data.fileName());
  const int saved_error = code.errorCode;
  code.errorCode = 0;
  Status s = Rebuild(data, wanted, code, options).Run(rebuilt);
  code.errorCode = saved_error;
  return s;
}

}  // namespace kvd::frame

bool KvAdjustDbStructS(Data4& data, const FIELD4INFO* fields, Code4& code, const char* indexFile) {
  if (fields == nullptr) return false;
  std::size_t n = 0;
  while (fields[n].name != nullptr) ++n;
  const std::string_view extra[1] = {indexFile != nullptr ? indexFile : ""};
  kvd::frame::AdaptOptions options;
  if (indexFile != nullptr && *indexFile != '\0') options.index_files = extra;
  bool rebuilt = false;
  (void)kvd::frame::AdaptTable(data, std::span<const FIELD4INFO>(fields, n), code, options, &rebuilt);
  return rebuilt;
}

bool KvAdjustDbStruct(Data4& data, Field4info& wanted, Code4& code) {
  bool rebuilt = false;
  (void)kvd::frame::AdaptTable(data,
                               std::span<const FIELD4INFO>(wanted.fields(), static_cast<std::size_t>(wanted.numFields())),
                               code, kvd::frame::AdaptOptions(), &rebuilt);
  return rebuilt;
}

void KvFieldInfoStruct2Obj(const FIELD4INFO* fields, Field4info& info) {
  for (const FIELD4INFO* f = fields; f != nullptr && f->name != nullptr; ++f)
    info.add(f->name, static_cast<char>(f->type), f->len, f->dec, 0);
}
