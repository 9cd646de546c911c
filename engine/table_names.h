// Names of a table's files, and the recovery of a memo compression that a crash interrupted.
#pragma once

#include <string>
#include <string_view>

#include "engine/dbf_file.h"
#include "engine/memo_file.h"

namespace kvd::engine {

// `name` with `ext` (".DBF") appended when the name part has no extension.
std::string WithExtension(std::string_view name, std::string_view ext);
// The name without directory and extension.
std::string_view AliasOf(std::string_view name);
// The table's own index: its name with the extension .CDX (.cdx for a lower-case table extension).
std::string ProductionIndexName(std::string_view table);
// The memo file of a table: its name with the extension .FPT or .DBT, in the case of the table's
// own extension (a table "x.dbf" has "x.fpt"); the disk lookup ignores case anyway.
std::string MemoNameFor(std::string_view table, MemoKind kind);

// Compressing a memo file rewrites two files, the memo and the table (whose records point into
// it), and no rename does both at once. So both new files are first written under fixed names
// beside the table and synced; then the memo is renamed into place, then the table. A crash
// between the two renames leaves the new table file still waiting: the next open finishes the
// job (RecoverInterruptedCompress). A crash before the first rename leaves both waiting, and the
// next open throws them away: the old pair is still whole.
Status CompressMemoFile(DbfFile& dbf, MemoFile& memo, std::string_view table_name);
void RecoverInterruptedCompress(std::string_view table_name);

}  // namespace kvd::engine
