// Structure adaption: every table the frame opens is compared with the definition compiled into the
// program, and a file of another structure is rebuilt on the spot, its records carried over field by
// field by name. There is no migration step beside this: an old project becomes current by being
// used.
//
// The comparison (every open; reads nothing but the field descriptors the open table holds):
//   - names compare ignoring case, so a definition that spells a field "Text" matches the file's
//     "TEXT"; the order of the fields never counts;
//   - a field differs when its type differs, or for C its width, for N and F width and decimals;
//     L, D and the memo types have one width each, which the definition need not spell out;
//   - a wanted field the file lacks, or a file field the definition lacks, means a rebuild.
//
// The rebuild (only when the comparison found a difference):
//   - it runs under the directory's guard (a DirectoryLock, see platform/file.h), as the new table
//     is written under the fixed name __DBTEMP with the table's own extension and its memo beside
//     it: two rebuilds in one directory take turns rather than write into each other's files;
//   - the open table is made its opener's alone (d4accessAlone) for the whole copy and replace:
//     while anyone else has it open, in this process or another, nothing happens and the answer is
//     "not rebuilt";
//   - records go over in record order, deleted ones left out; wanted fields the file lacks stay
//     blank; memo contents go byte for byte; other values through f4assignField, which converts
//     between types and cuts or pads to the new width (a text longer than its new width loses its
//     end, a number too wide for its new field becomes '*');
//   - the stale index files of the table (<name>.CDX, and whatever other index names the caller
//     gives) are removed before the new table takes the old one's place: an index that names the
//     old record numbers must never meet the new records;
//   - the new files take the old names by renames over them (engine ReplaceTablePair): a process
//     killed at any moment leaves the old table or the new one, each with its own memo file.
// A rebuild that cannot run (temporary table not made, disk full, another opener) leaves the old
// files exactly as they were and the table open and usable in the caller's Data4.
//
// Threads: one Code4 with its tables belongs to one thread at a time, as everywhere in the engine.
#pragma once

#include <span>
#include <string_view>

#include "engine/d4classes.h"
#include "platform/status.h"

namespace kvd::frame {

struct AdaptOptions {
  // Further index files of the table, removed after a rebuild beside <name>.CDX: a family whose
  // index has another name or extension ("_FGCOLOR.MDX") names it here. A name without directory
  // lies beside the table; one without extension gets .CDX.
  std::span<const std::string_view> index_files;
  // How long a rebuild waits for another rebuild in the same directory to finish.
  unsigned guard_wait_ms = 30000;
};

// True when the open table's fields differ from `wanted` as described above. No file access.
bool StructureDiffers(Data4& data, std::span<const FIELD4INFO> wanted);

// Compares the open table with `wanted` and rebuilds it when it differs.
//   Ok, *rebuilt false:  the table matched; nothing was touched.
//   Ok, *rebuilt true:   the file was rebuilt and `data` is closed (null); open the table again.
//   failure:             the table differs but was not rebuilt; the old files are as they were and
//                        `data` is still open. The status says why (kBusy: another opener or another
//                        rebuild in the directory).
// The errorCode of `code` is as it was before the call in every case.
Status AdaptTable(Data4& data, std::span<const FIELD4INFO> wanted, Code4& code, const AdaptOptions& options,
                  bool* rebuilt);

}  // namespace kvd::frame

// The table layer's names for the same work. `fields` ends with a row whose name is null.
// True when the file was rebuilt; `data` is then closed and the caller opens the table again by its
// name. False when the table was up to date or could not be rebuilt (see AdaptTable); it stays open.
// `indexFile`, when given, is a further index file of the table to remove after a rebuild.
bool KvAdjustDbStructS(Data4& data, const FIELD4INFO* fields, Code4& code, const char* indexFile = nullptr);
bool KvAdjustDbStruct(Data4& data, Field4info& wanted, Code4& code);
// Adds the rows of `fields` up to the one with a null name to `info`, with nulls 0.
void KvFieldInfoStruct2Obj(const FIELD4INFO* fields, Field4info& info);
