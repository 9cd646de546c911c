// The tags of a table's index as kvd info shows them.
#pragma once

#include "tools/kvd/reader.h"

namespace kvd::tool {

// The lines of kvd info about the production index: its file and each tag in definition order, or
// one line saying that the table has none (or that it could not be read).
void PrintIndex(Reader& r);

}  // namespace kvd::tool
