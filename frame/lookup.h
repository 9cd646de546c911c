// The project catalogue's table, which a selection reads before anything else.
#pragma once

#include "engine/d4all.h"

namespace kvd::frame {

// _PROJECT.DBF in the admin directory, and its index _PROJECT.CDX.
extern const char kProjektDbName[];   // "_PROJECT"
extern const FIELD4INFO kProjektDbDef[];
extern const TAG4INFO kProjektNdxTag[];

}  // namespace kvd::frame
