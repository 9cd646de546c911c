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
// True when it found the files of such a crash and, having the table alone, dealt with them.
bool RecoverInterruptedCompress(std::string_view table_name);
// Whether the new table of an interrupted compression waits beside `dbf`, an open of
// `table_name`: one stat in the directory the open found. An opener asks this once it has the
// table open, and then closes it and recovers (the open itself costs nothing extra that way).
bool InterruptedCompressWaits(DbfFile& dbf, std::string_view table_name);

// Puts a table written aside, `built_table` with its memo file `built_memo` ("" when it has none),
// in the place of `table` and its .FPT memo, for a caller that holds `table` (and its memo) alone.
// Both new files are synced first. A new table without memo is one atomic rename. A new pair goes
// the way of a compression: both files are moved to the compression's fixed names beside the table,
// then the memo is renamed into place, then the table; so a crash at any moment leaves the old pair
// or, once the next open has run RecoverInterruptedCompress, the new one.
// *committed turns true when the new memo stands in place: from then on the new pair is the table,
// even if an error follows (the next open finishes the job). On an error before that, the old
// files are untouched and the built files may have been moved away (the caller removes what is
// left of them). An interrupted replace of this table still waiting for its open (the new table
// under the fixed name, its memo already in place) is never thrown away while `table` has memo
// fields (`table_has_memo`): kBusy. A table without memo fields never read the memo put in place,
// and its opens do not look for a waiting table (one system call less per open): what waits is
// stale, and goes.
// The memo file of the old table is left to the caller when the new one has none or names it
// differently (.DBT): it can only go once the caller's own open of it is closed.
Status ReplaceTablePair(std::string_view built_table, std::string_view built_memo, std::string_view table,
                        bool* committed, bool table_has_memo = true);

}  // namespace kvd::engine
