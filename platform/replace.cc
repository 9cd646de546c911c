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
  return Status::Ok();
}

}  // namespace kvd::platform
