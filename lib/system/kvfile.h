// Whole files and directory paths: a file read into one buffer, a buffer written as a whole file
// (with the directories it lies in made first), and the making of a directory path.
//
// Names are in the form the library's callers build: backslashes, an optional drive letter, any
// case ("C:\TELMOR\Prj1\Data.BIN"); POSIX paths work as well. Every access maps them through the
// platform's one boundary (platform/path.h), which finds existing names ignoring case, so a file
// written as "C:\A\x.bin" is read back as "c:\a\X.BIN".
//
// Nothing here throws: a file that cannot be opened, read or written answers false or null.
// Any thread; no state.
#pragma once

#include "lib/foundation/kvstring.h"
#include "lib/kv_export.h"

// Makes the directories of `path`, from the top down. The path is split at '/' and '\' (a run of
// them counts as one); with `lastIsFile` the last part is a file name and no directory is made of
// it. The first part (a drive "C:", the root of a path beginning with a separator, or the first
// name of a relative path) is taken as it stands: it is never made, and when it is no directory
// nothing below it can be, so the answer is false. Each further level that is missing is made;
// the first one that cannot be made (a file in the way, no permission) ends the walk with false.
// True when the whole path stands as directories, also when nothing had to be made.
KVCLASS_API bool KvCreateDirectory(KvString path, bool lastIsFile);

// Reads the whole file `name` into a new buffer of its size plus one, with a zero byte behind the
// data, and puts the number of bytes read into *bytes (when bytes is not null). The caller owns the
// buffer and frees it with delete[]. Null (and *bytes 0) when the file cannot be opened or read, is
// a directory, or holds 4 GB or more (the count is 32-bit).
KVCLASS_API unsigned char* KvReadFileToBuffer(const char* name, unsigned long* bytes);

// Writes the `size` bytes at `data` as the whole file `name`: its directories are made as by
// KvCreateDirectory(name, true), then the file is made anew (an existing one is emptied first) and
// written. False when the file cannot be made or written, or when data is null and size is not 0;
// what could be written then stays. Nothing is forced to disk.
KVCLASS_API bool KvWriteBufferToFile(const char* name, const unsigned char* data, unsigned long size);
