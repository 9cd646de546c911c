#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/file.h"
#include "platform/path.h"
#include "platform/sys.h"

namespace kvd::platform {

Status ReplaceFileHeld(std::string_view from, std::string_view to) {
  const std::string src = HostPath(from);
  const std::string dst = HostPath(to);
  if (Sys().rename(src.c_str(), dst.c_str()) != 0) return Status::FromErrno(errno, "rename to", dst);
  File::ForgetParked(dst);
  return Status::Ok();
}

bool FileExistsAsSpelled(std::string_view path) {
  const std::string host = HostPath(DirPart(path)) + std::string(NamePart(path));
  struct stat st;
  return ::stat(host.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace kvd::platform
