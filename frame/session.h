// The library's process-wide values and its start-up.
#pragma once

#include <string>

#include "include/kvd_frame.h"

namespace kvd::frame {

// Read at start-up, read-only afterwards.
struct Settings {
  char admin_path[KVD_PATH_MAX + 1];  // with a trailing backslash unless empty
  int backup_files;                   // nonzero: a table opened for writing is copied to .DBK first
};
const Settings& TheSettings();

// The start-up steps: reads the configuration file into the settings. Runs once when the library is
// loaded; tests call it again after pointing KVD_TELMOR_INI at a file of their own.
void Startup();

// The configuration file: $KVD_TELMOR_INI when set, else TELMOR.INI beside the executable.
std::string IniFile();

}  // namespace kvd::frame
