#include "engine/table_names.h"

#include <cctype>
#include <cstring>
#include <vector>

#include "engine/dbf_format.h"
#include "engine/memo_ptr.h"
#include "platform/file.h"
#include "platform/path.h"

namespace kvd::engine {

namespace {

// Position of the extension's dot in the name part, or npos.
std::size_t ExtensionDot(std::string_view name) {
  const std::size_t start = name.size() - platform::NamePart(name).size();
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot < start) return std::string_view::npos;
  return dot;
}

// The fixed names of a compression's two new files: hidden, beside the table.
std::string PendingName(std::string_view table, const char* what) {
  return std::string(platform::DirPart(table)) + "." + std::string(platform::NamePart(table)) + ".compress-" + what;
}

}  // namespace

std::string WithExtension(std::string_view name, std::string_view ext) {
  if (ExtensionDot(name) != std::string_view::npos) return std::string(name);
  return std::string(name) + std::string(ext);
}

std::string_view AliasOf(std::string_view name) {
  std::string_view n = platform::NamePart(name);
  const std::size_t dot = n.rfind('.');
  return dot == std::string_view::npos ? n : n.substr(0, dot);
}

std::string ProductionIndexName(std::string_view table) {
  const std::size_t dot = ExtensionDot(table);
  std::string base(dot == std::string_view::npos ? table : table.substr(0, dot));
  const bool lower = dot != std::string_view::npos && dot + 1 < table.size() &&
                     std::islower(static_cast<unsigned char>(table[dot + 1]));
  return base + (lower ? ".cdx" : ".CDX");
}

std::string MemoNameFor(std::string_view table, MemoKind kind) {
  const std::size_t dot = ExtensionDot(table);
  std::string base(dot == std::string_view::npos ? table : table.substr(0, dot));
  bool lower = dot != std::string_view::npos && dot + 1 < table.size() &&
               std::islower(static_cast<unsigned char>(table[dot + 1]));
  const char* ext = kind == MemoKind::kDbt ? (lower ? ".dbt" : ".DBT") : (lower ? ".fpt" : ".FPT");
  return base + ext;
}

Status CompressMemoFile(DbfFile& dbf, MemoFile& memo, std::string_view table_name) {
  const std::string new_memo = PendingName(table_name, "fpt");
  const std::string new_table = PendingName(table_name, "dbf");
  platform::RemoveFile(new_memo);
  platform::RemoveFile(new_table);

  KVD_RETURN_IF_ERROR(dbf.FlushAppends());
  std::vector<const FieldLayout*> memo_fields;
  for (const FieldLayout& f : dbf.fields())
    if (IsMemoLayout(f)) memo_fields.push_back(&f);
  std::uint32_t count = 0;
  KVD_RETURN_IF_ERROR(dbf.RecordCount(&count));

  // Every record's memo pointers, record by record, then the memos copied in that order.
  std::vector<char> records(static_cast<std::size_t>(count) * dbf.record_len());
  std::vector<std::uint32_t> blocks;
  blocks.reserve(static_cast<std::size_t>(count) * memo_fields.size());
  for (std::uint32_t r = 0; r < count; ++r) {
    char* rec = records.data() + static_cast<std::size_t>(r) * dbf.record_len();
    KVD_RETURN_IF_ERROR(dbf.ReadRecord(r + 1, rec));
    for (const FieldLayout* f : memo_fields) blocks.push_back(ReadMemoPointer(rec + f->offset, f->len));
  }
  // Both new files are locked exclusively from their creation, so neither is ever under the
  // table's names without our lock (see DbfFile::TakeReplacement).
  std::unique_ptr<platform::File> memo_out;
  KVD_RETURN_IF_ERROR(memo.CopyCompact(new_memo, blocks.data(), blocks.size(), &memo_out));
  std::size_t k = 0;
  for (std::uint32_t r = 0; r < count; ++r) {
    char* rec = records.data() + static_cast<std::size_t>(r) * dbf.record_len();
    for (const FieldLayout* f : memo_fields) WriteMemoPointer(rec + f->offset, f->len, blocks[k++]);
  }

  // The new table: the old header as it stands, the records with their new pointers, the end mark.
  std::vector<char> head(dbf.header_len());
  KVD_RETURN_IF_ERROR(dbf.file().ReadExactAt(0, head.data(), head.size()));
  std::unique_ptr<platform::File> out;
  KVD_RETURN_IF_ERROR(platform::File::Open(new_table, platform::OpenMode::kCreateExclusive, &out));
  KVD_RETURN_IF_ERROR(out->ShareLock(platform::LockKind::kExclusive, /*wait=*/false));
  KVD_RETURN_IF_ERROR(out->WriteAt(0, head.data(), head.size()));
  KVD_RETURN_IF_ERROR(out->WriteAt(head.size(), records.data(), records.size()));
  const char eof = static_cast<char>(dbf::kEndOfFile);
  KVD_RETURN_IF_ERROR(out->WriteAt(head.size() + records.size(), &eof, 1));
  KVD_RETURN_IF_ERROR(out->Sync());
  KVD_RETURN_IF_ERROR(memo_out->MoveOver(memo.open_path()));
  KVD_RETURN_IF_ERROR(out->MoveOver(dbf.open_path()));
  platform::SyncDirectory(platform::DirPart(dbf.open_path()));
  KVD_RETURN_IF_ERROR(memo.TakeReplacement(std::move(memo_out)));
  return dbf.TakeReplacement(std::move(out));
}

namespace {

Status SyncFileByName(std::string_view path) {
  std::unique_ptr<platform::File> f;
  KVD_RETURN_IF_ERROR(platform::File::Open(path, platform::OpenMode::kRead, &f));
  return f->Sync();
}

}  // namespace

Status ReplaceTablePair(std::string_view built_table, std::string_view built_memo, std::string_view table,
                        bool* committed, bool table_has_memo) {
  *committed = false;
  KVD_RETURN_IF_ERROR(SyncFileByName(built_table));
  if (!built_memo.empty()) KVD_RETURN_IF_ERROR(SyncFileByName(built_memo));
  const std::string dir(platform::DirPart(table));
  if (built_memo.empty()) {
    KVD_RETURN_IF_ERROR(platform::ReplaceFileHeld(built_table, table));
    *committed = true;
    platform::SyncDirectory(dir);
    return Status::Ok();
  }

  const std::string new_memo = PendingName(table, "fpt");
  const std::string new_table = PendingName(table, "dbf");
  // What an earlier replace or compression left, read as RecoverInterruptedCompress reads it: a
  // waiting table without its memo beside it is the new table of a pair whose memo is in place.
  if (table_has_memo && platform::FileExistsAsSpelled(new_table) && !platform::FileExists(new_memo))
    return Status::Busy("an interrupted replace of " + std::string(table) + " waits for the next open to finish it");
  platform::RemoveFile(new_memo);
  platform::RemoveFile(new_table);

  KVD_RETURN_IF_ERROR(platform::ReplaceFileHeld(built_memo, new_memo));
  if (Status s = platform::ReplaceFileHeld(built_table, new_table); !s.ok()) {
    platform::RemoveFile(new_memo);
    return s;
  }
  // Both names durable before the first file changes place.
  if (Status s = platform::SyncDirectory(dir); !s.ok()) {
    platform::RemoveFile(new_memo);
    platform::RemoveFile(new_table);
    return s;
  }
  if (Status s = platform::ReplaceFileHeld(new_memo, MemoNameFor(table, MemoKind::kFpt)); !s.ok()) {
    platform::RemoveFile(new_memo);
    platform::RemoveFile(new_table);
    return s;
  }
  *committed = true;
  Status s = platform::ReplaceFileHeld(new_table, table);
  platform::SyncDirectory(dir);
  return s;
}

bool InterruptedCompressWaits(DbfFile& dbf, std::string_view table_name) {
  // PendingName's name part, looked for in the directory the table was opened in.
  return dbf.file().FileBeside("." + std::string(platform::NamePart(table_name)) + ".compress-dbf");
}

bool RecoverInterruptedCompress(std::string_view table_name) {
  const std::string new_table = PendingName(table_name, "dbf");
  // The common case is one failed look-up of a name we wrote ourselves, in the case we wrote it:
  // no directory scan for a spelling in another case.
  if (!platform::FileExistsAsSpelled(new_table)) return false;
  // Only whoever has the table alone may repair it; an opener that cannot get it leaves the repair
  // to the next one (someone else has the table open and did it, or will).
  std::unique_ptr<platform::File> guard;
  if (!platform::File::Open(table_name, platform::OpenMode::kRead, &guard).ok()) return false;
  if (!guard->ShareLock(platform::LockKind::kExclusive, false).ok()) return false;
  const std::string new_memo = PendingName(table_name, "fpt");
  if (platform::FileExists(new_memo)) {
    // The crash came before the memo was renamed: the old pair is whole.
    platform::RemoveFile(new_memo);
    platform::RemoveFile(new_table);
  } else {
    platform::ReplaceFileHeld(new_table, table_name);
  }
  return true;
}

}  // namespace kvd::engine
