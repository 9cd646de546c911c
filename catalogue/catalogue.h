// The catalogue's inner parts, shared by its modules and by the tools that build plants: the table
// definitions, the comment file, the name and directory rules, and the table handle every catalogue
// call opens its table through.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "include/kvd_catalogue.h"

namespace kvd::catalogue {

// _VERSION.DBF in the project directory, and its index (tag "NAME"). The project catalogue's
// definition lives with the frame (frame/lookup.h), which reads it for every selection.
extern const char kVersionDbName[];  // "_VERSION"
extern const FIELD4INFO kVersionDbDef[];
extern const TAG4INFO kVersionNdxTag[];

// The dictionary: _TABLES.DBF (no index) and _COLUMNS.DBF (tag "OSKAR") at project level; the
// text lists at version level, without index.
extern const char kTablesDbName[];   // "_TABLES"
extern const FIELD4INFO kTablesDbDef[];
extern const char kColumnsDbName[];  // "_COLUMNS"
extern const FIELD4INFO kColumnsDbDef[];
extern const TAG4INFO kColumnsNdxTag[];
extern const char kUnitDbName[];     // "X_Unit"
extern const FIELD4INFO kUnitDbDef[];
extern const char kSignalDbName[];   // "_Signal"
extern const FIELD4INFO kSignalDbDef[];
extern const char kStatusDbName[];   // "X_Status"
extern const FIELD4INFO kStatusDbDef[];

// ---------------------------------------------------------------------------------------------
// The comment file "komment.txt" of a project or version directory (`lpPath`, with or without its
// trailing separator).

// Writes `lpKomment` (null: empty) as the whole file, made anew. 16 when it cannot be made, else 0.
int WriteKomment(const char* lpPath, const char* lpKomment);
// Reads at most KVD_KOMMENT_MAX bytes into `lpKomment` and terminates it; a missing file gives the
// empty text. Always 0.
int ReadKomment(const char* lpPath, char* lpKomment);

// ---------------------------------------------------------------------------------------------
// Names and directories

// The name of a project or version as the catalogue keeps it: trimmed at both ends, 1 to 8
// characters, none of them a path separator, a drive colon, a wildcard, one of < > " | or a
// control character, and not "." or "..". False for anything else: such a name would leave the
// directory it is joined to, or could not name a directory at all.
bool CleanName(const char* name, std::string* trimmed);

// A project directory as stored (`pfad`, relative to the admin directory unless it begins with a
// drive letter or '/'), completed, trimmed, with a trailing separator.
std::string ProjectDirectory(std::string_view pfad);

// True when `dir` must never be emptied, pruned, moved or taken for a project: it resolves (links
// followed) to the host's root, to the directory a drive letter stands for, to the admin directory
// or to a directory above it.
bool IsProtectedDirectory(std::string_view dir);

// Two directories of which one is the other or lies inside it, links followed where they exist.
bool Overlap(std::string_view a, std::string_view b);

// The blank-padded key of a catalogue name (8 characters); false for a name longer than that
// (trailing blanks not counted).
bool CatalogueKey(const char* name, std::string* key);

// Today as "CCYYMMDD", and a stored date as "DD.MM.YY" (empty for a blank date).
std::string Today();
void FormatDate(const char* ccyymmdd, char out[9]);

// ---------------------------------------------------------------------------------------------
// The table of one call

// A table and its index, opened for one call and closed when it ends (a pending change is written
// by the close). Open answers 0, 6 or 7; on failure nothing stays open.
class CallTable {
 public:
  CallTable() = default;
  ~CallTable() { Close(); }
  CallTable(const CallTable&) = delete;
  CallTable& operator=(const CallTable&) = delete;

  // `tags` null: the table has no index.
  long Open(_SELECT_SD* s, const char* dir, const char* name, const FIELD4INFO* def, const TAG4INFO* tags,
            int access);
  DATA4St* db() const { return db_; }
  // Seeks the padded key of `name` in the default tag; false for a miss.
  bool Seek(const char* name);
  // The current record's field, trimmed at both ends.
  std::string Text(const char* field) const;
  // Locks the current record for a change; false when the lock cannot be had.
  bool LockCurrent();
  // Locks, marks deleted and packs (the pack is left when another opener holds the table: the
  // record is then only marked, which every read and list of the catalogue passes over).
  bool DeleteCurrent();
  void Close();

 private:
  DATA4St* db_ = nullptr;
};

// The rows a list cursor gives: name and description of each live record, by name. A list is read
// whole when its cursor opens, in record order (each record once, so a name changed meanwhile
// shows once, with its old or its new value), and sorted as the name tag orders it.
struct ListRow {
  std::string name;
  std::string descr;
};
long ReadList(_SELECT_SD* s, const char* dir, const char* db_name, const FIELD4INFO* def, const TAG4INFO* tags,
              std::vector<ListRow>* rows);

// A list cursor: the caller's _CURSOR_SD with the rows behind it.
_CURSOR_SD* NewListCursor(std::vector<ListRow> rows);
// The next row, or false at the end.
bool NextListRow(_CURSOR_SD* c, const ListRow** row);
void FreeListCursor(_CURSOR_SD* c);

// The names of every live record of a catalogue table (record order). Used to keep the names of
// versions apart ignoring case, and to walk all projects.
std::vector<std::string> AllNames(DATA4St* db);

}  // namespace kvd::catalogue
