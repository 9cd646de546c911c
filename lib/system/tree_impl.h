// Internal to the class library: the directory maker of the tree operations, shared with the
// whole-file functions. Not installed.
#pragma once

#include <string_view>

#include "platform/status.h"

namespace kvd::lib {

// Makes the directory `dir` (Windows form allowed; trailing separators ignored) and every missing
// one above it; an existing directory is fine, a file in the way is not. With `durable`, each
// directory made is synced into its parent before the next step. Any thread.
Status MakeDirectoryPath(std::string_view dir, bool durable);

}  // namespace kvd::lib
