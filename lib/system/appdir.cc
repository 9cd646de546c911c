#include "lib/system/appdir.h"

#include <cstring>
#include <string>

#include "platform/env.h"

void KvGetAppDir(char* dir) {
  if (dir == nullptr) return;
  const std::string d = kvd::platform::ExecutableDir();
  if (d.size() >= 260) {  // a directory that does not fit is no directory the caller can use
    dir[0] = '\0';
    return;
  }
  std::memcpy(dir, d.c_str(), d.size() + 1);
}
