// The table kernel: every table call reaches the engine through these routines. They find a table,
// make it when it is missing, adapt it when its structure is old, open or build its index, and
// check its structure on request.
#pragma once

#include <cstdint>
#include <string>

#include "include/kvd_frame.h"

namespace kvd::frame {

// Opens `lpDbName` (".DBF" when it has no extension) in `lpPath`, which ends in a backslash.
// nAccess 1 (writing) first copies the table to <name>.DBK when backups are on. A missing table is
// created empty from `lpDbDef` and a stale index beside it removed; a table of another structure is
// adapted. A table that exists but cannot be opened (held alone by another program, damaged) is
// never created anew: the answer is null, so that no stored record is lost.
DATA4St* OpenTable(_SELECT_SD* lpSelect, const char* lpPath, const char* lpDbName, const FIELD4INFO* lpDbDef,
                   int nAccess);

// Opens the index `lpNdxName` (".CDX" when it has no extension) of the open table; a missing one is
// built from `lpTagInfo`, and so is one that lacks a tag of `lpTagInfo` (an index of an older
// release). An index that exists but cannot be read is left alone: null, and the caller answers 7;
// removing the file is the way to repair it. The first tag is selected whatever the outcome.
INDEX4St* OpenIndex(_SELECT_SD* lpSelect, const char* lpPath, const char* lpNdxName, DATA4St* lpDb,
                    const TAG4INFO* lpTagInfo);

// Appends the definition lines of the fields that differ to `lpszMsg` and answers 36; 0 and the
// message as it was when the table is in order; 6 when it cannot be opened. nWhereToSearch nonzero:
// the project directory, else the version directory.
int CheckDBStructure(_SELECT_SD* lpSelect, const char* lpDbName, const FIELD4INFO* lpDbDef, char* lpszMsg,
                     int nMaxMsgLen, int nWhereToSearch);

// Goes on from *lplpDbDef while the table has a field of that name and length (type and decimals
// are not compared): 1 at the end of the definition, 0 at the first field that differs, to which
// *lplpDbDef then points.
int GetMissingField(DATA4St* lpDb, const FIELD4INFO** lplpDbDef);

// Bit masks stored as hexadecimal text (lower case, no leading zeros). Reading stops at the first
// character that is no hexadecimal digit, after at most 16. The mask is 32 bits wide.
uint32_t Kvf4hex(FIELD4St* field);
void Kvf4assign_hex(FIELD4St* field, uint32_t ul);

// The message text of a status number; "" for the numbers that have none.
const char* StatusText(int status);

// <lpPath><lpDbName>, cut to 259 bytes; ".DBF" added when `add_ext` and the name has no extension.
std::string JoinPath(const char* lpPath, const char* lpDbName, const char* add_ext = nullptr);

}  // namespace kvd::frame
