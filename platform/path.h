// Paths at the file-system boundary.
//
// Inside the library a path keeps the Windows form its callers build: backslashes, a drive letter,
// names in any case ("C:\TELMOR\PRJ1\_Signal.DBF"). HostPath() is the one place where such a path
// becomes a path of this machine; every function of the platform layer that takes a path calls it,
// so callers never map paths themselves.
//
// The mapping:
//   - a backslash becomes '/', and a run of separators counts as one;
//   - "X:" at the start (any drive letter) is replaced by the directory named in the environment
//     variable KVD_DRIVE_X if that is set, else by "/" (there are no drives here; a plant's
//     configuration that names C:\TELMOR\ then lies in /TELMOR/ unless KVD_DRIVE_C says otherwise);
//   - every existing component is found case-insensitively: when the name as written does not
//     exist, the directory is searched for a name that equals it ignoring ASCII case, and the first
//     such name in byte order is taken; a component that matches nothing is kept as written, so a
//     file to be created gets the caller's spelling;
//   - a relative path stays relative to the process's current directory.
// Thread-safe; no state.
#pragma once

#include <string>
#include <string_view>

namespace kvd::platform {

std::string HostPath(std::string_view path);

// The same mapping without looking at the disk: drive and separators as above, every component as
// written. For a caller that tries the name as written first and resolves with HostPath only when
// that finds nothing (an open of an existing file then costs no look-up of its own).
std::string HostPathAsWritten(std::string_view path);

// Directory part of a path with its trailing separator as written ("C:\A\B.DBF" -> "C:\A\"), and the
// name after it ("B.DBF"). Either separator counts. Pure string work.
std::string_view DirPart(std::string_view path);
std::string_view NamePart(std::string_view path);

}  // namespace kvd::platform
