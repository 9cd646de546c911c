// Copying, deleting and pruning directory trees.
//
// The catalogue copies a project tree with KvCopyFilesEx, moves one with KvXCopy followed by
// KvPrune, and empties version directories with KvDeleteFilesEx.
//
// Paths are in the form the library's callers build: backslashes, an optional drive letter, names
// in any case ("C:\TELMOR\PRJ1\*.*"); POSIX paths work as well. Every file access maps them through
// the platform's one boundary (platform/path.h), which finds existing names ignoring case. A path
// the caller gives is at most 259 characters (260 with its terminator).
//
// A path list, as KvCopyFilesEx and KvDeleteFilesEx take it, is one or more NUL-terminated texts
// followed by one more NUL: "C:\A\*.*\0C:\B\X.DBF\0\0". A caller with one path writes a second NUL
// behind it, so its buffer needs room for one byte more than the text.
//
// Wildcards ('*' any run, '?' one character, compared ignoring ASCII case) are allowed only in the
// last component of a path. As a command shell reads them, "*.*" also takes names without a point
// and "NAME.*" takes "NAME" itself.
//
// There is no user interface: the `progress` flags show nothing, nothing asks for confirmation,
// and there is no recycle bin, so a delete is final. None of these functions throws; results are
// all a caller gets. All of them may run on several threads, as long as no thread changes the
// process's current directory while relative paths are in use.
#pragma once

#include "lib/kv_export.h"

// Copies the files and directories named by the path list `from` into the first path of the list
// `to`. With one source that is a plain file or directory, `to` is the copy's own name unless
// it is an existing directory, which then receives the copy under the source's name. With several
// sources or a wildcard, `to` is the directory that receives them all. Directories are copied with
// everything below them; the target and missing directories above it are made. A file that exists
// in the target already ends the copy with false (nothing is overwritten), and what was copied
// before it stays. Copying a directory into itself or below itself fails before any work.
// A symbolic link to a directory is copied as a link; a link to a file is copied as the file.
// Each file appears under its name only when it is whole. Nothing is forced to disk: the copy
// reaches it with the system's writeback, as a shell's copy does (the sources stay, so a crash can
// cost the copy, never the original); KvXCopy, after which callers prune, syncs every step.
KVCLASS_API bool KvCopyFilesEx(const char* from, const char* to, bool progress);

// Deletes what the path list `from` names: with a wildcard, the matching files of that directory
// (directories, and links to directories, stay, with everything in them); without one, the one
// file named. A directory named without a wildcard is refused: it would take its whole tree. True
// when all of it went, also when a pattern matched nothing in an existing directory; false for a
// missing directory or file, and at the first file that cannot be removed, which includes a file
// another opener holds (see platform/file.h RemoveFile). Files removed before that stay removed.
KVCLASS_API bool KvDeleteFilesEx(const char* from, bool progress);

// Copies the entries of one directory into the directory `to`, which is made (one level) unless it
// exists. `from` is expanded with KvFnameExpand, so a directory named by itself stands for its
// contents, and the directory part of the expansion is the source: all of its entries are
// copied, whatever name or pattern `from` ends in (and a `from` naming a missing directory takes
// the entries of its parent). Subdirectories whose names do not begin with '.' are copied in turn
// when `subdirectories` is set (in the int form: only for the value 1). Entries go in the order of
// the listing (by name, ignoring case); a file that exists in the target ends the copy there, and
// what was copied before stays. Links as with KvCopyFilesEx; a device, pipe or socket fails.
// A `to` with '*' or '?' fails at once. Copying a tree into itself (with subdirectories) fails
// before any work. Each copied file and each made directory is on disk before the next step, so
// a caller may prune the source after success.
// Results: the int form 0 when the copy ran to its end, else 1; the bool form true when it did.
// Running out of memory shows a message (platform/env.h ShowMessage) and fails.
KVCLASS_API int KvXCopy(char* to, char* from, int subdirectories, int reserved);
KVCLASS_API bool KvXCopy(char* to, char* from, bool subdirectories);

// Removes the directory `path` (one trailing backslash allowed) with everything below it, as far
// as it goes: a file that cannot be removed (held by another opener, for one) stays, and so does
// every directory above it, silently. Names beginning with '.' are left alone. Links are removed,
// never followed; another file system mounted below is not entered. 1 when the directory could be
// entered, else 0 (missing, not a directory, a link, an empty path, or the top of a drive or the
// host's root, which are never pruned). Never changes the process's current directory.
KVCLASS_API int KvPrune(char* path);

// 1 when `s` holds '*' or '?', else 0 (also for null).
KVCLASS_API int KvContainsWildcards(char* s);

// Makes `name` an absolute, upper-case path the way a command shell reads it, into `result`
// (room for 260 characters with the terminator; a longer result is written as the empty text).
// A directory named without wildcards gets "\*.*"; an empty name part becomes "*" and a name
// without extension gets ".*": "c:\plant\prj1" -> "C:\PLANT\PRJ1\*.*" when PRJ1 is a directory,
// "C:\PLANT\PRJ1.*" when it is not. "." components are dropped, ".." removes the one before.
// What the current drive and directory mean here is told beside the code (tree.cc).
KVCLASS_API void KvFnameExpand(char* result, char* name);
