// Where the running program lies.
#pragma once

#include "lib/kv_export.h"

// Writes the directory of the process's executable (not of a library it loaded), with a trailing
// separator, into `dir`, which must hold 260 bytes. It is a path of this machine ("/opt/plant/bin/"):
// the directory comes from the system, so it keeps the system's form. Empty when it cannot be told.
KVCLASS_API void KvGetAppDir(char* dir);
