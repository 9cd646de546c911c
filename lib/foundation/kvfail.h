// The one road out of the class library for failures, broken invariants and debug lines.
//
// Every class of the library reports through these three functions and nothing else:
//   KvFail        a failure that cannot go on: the text is reported, then thrown as a KvFailure;
//   KvAssertFail  a broken invariant: reported as "Internal data structures corrupted in ...",
//                 and the caller goes on;
//   KvDebugLine   one line for the debug log.
// Until the debug log and KvThrow exist, the lines go to a small ring in memory (KvDebugLastLines
// reads it back) and, when KVD_DEBUG_STDERR is set in the environment, to standard error; an
// assertion also goes to the message-box stand-in. When the log arrives, these bodies route to
// it and KvFail to KvThrow, and KvFailure becomes KvFixString<255>: callers do not change, as long
// as they catch KvFailure and read its text through `const char*`.
//
// Any thread may call them.
#pragma once

#include <cstddef>

#include "lib/kv_export.h"

// The thrown value: a text of at most 255 bytes held inside the object, so that copying it to
// throw or catch never allocates. Becomes KvFixString<255>.
class KVCLASS_API KvFailText {
 public:
  KvFailText() { _sz[0] = '\0'; }
  explicit KvFailText(const char* text);
  operator const char*() const { return _sz; }
  const char* GetText() const { return _sz; }

 private:
  char _sz[256];  // NUL-terminated, cut at 255 bytes
};
using KvFailure = KvFailText;

// Reports `text` as a failure (debug line) and throws KvFailure holding it, cut to 255 bytes.
[[noreturn]] KVCLASS_API void KvFail(const char* text);

// Reports a failed check: the statement as a debug line, then the text
// "Internal data structures corrupted in\nfile: <source>\nline: <line>\nstatement: <statement>"
// under the title "ERROR". `source` is the module's short name ("OPOOL"). Returns.
KVCLASS_API void KvAssertFail(const char* statement, const char* source, unsigned line);
#define KV_ASSERT(cond, source) \
  ((cond) ? (void)0 : KvAssertFail(#cond, (source), static_cast<unsigned>(__LINE__)))

// One line for the debug log.
KVCLASS_API void KvDebugLine(const char* text);
// printf-style form of KvDebugLine; the line is cut at 1023 bytes.
KVCLASS_API void KvDebugLineF(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Until the log exists: copies the `n`-th latest debug line (0 = the latest) of this process into
// `out` (`cb` bytes, cut and terminated). False when fewer lines were written. The ring keeps 64.
KVCLASS_API bool KvDebugLastLine(unsigned n, char* out, std::size_t cb);
// How many debug lines this process has written so far.
KVCLASS_API unsigned long KvDebugLineCount();
