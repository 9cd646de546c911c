// Status: kinds from errno, messages, and the corruption helper.
#include "platform/status.h"

#include <cerrno>
#include <cstring>

namespace kvd {

namespace {

// strerror_r comes in two shapes (GNU returns the text, POSIX fills the buffer and returns int);
// these overloads accept whichever one the C library declares.
[[maybe_unused]] const char* ErrorText(const char* from_gnu, const char*) { return from_gnu; }
[[maybe_unused]] const char* ErrorText(int, const char* buf) { return buf; }

std::string DescribeErrno(int err) {
  char buf[128];
  buf[0] = '\0';
  std::string text = ErrorText(strerror_r(err, buf, sizeof(buf)), buf);
  if (text.empty()) text = "error " + std::to_string(err);
  return text;
}

Status::Kind KindOfErrno(int err) {
  switch (err) {
    case ENOENT:
      return Status::Kind::kNotFound;
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EBUSY:
      return Status::Kind::kBusy;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return Status::Kind::kNoSpace;
    case EROFS:
      return Status::Kind::kReadOnly;
    case EEXIST:
      return Status::Kind::kExists;
    case EINVAL:
      return Status::Kind::kInvalidArgument;
    default:
      // EACCES is "permission denied" for open, unlink and rename. The lock calls, where it means
      // "held by someone else", turn it into EAGAIN before they get here (see file.cc).
      return Status::Kind::kIoError;
  }
}

const char* KindName(Status::Kind kind) {
  switch (kind) {
    case Status::Kind::kOk: return "OK";
    case Status::Kind::kNotFound: return "NotFound";
    case Status::Kind::kCorruption: return "Corruption";
    case Status::Kind::kIoError: return "IoError";
    case Status::Kind::kBusy: return "Busy";
    case Status::Kind::kInvalidArgument: return "InvalidArgument";
    case Status::Kind::kNoSpace: return "NoSpace";
    case Status::Kind::kUnsupported: return "Unsupported";
    case Status::Kind::kReadOnly: return "ReadOnly";
    case Status::Kind::kExists: return "Exists";
  }
  return "Unknown";
}

}  // namespace

Status Status::FromErrno(int err, std::string_view what, std::string_view path) {
  std::string msg;
  msg.reserve(what.size() + path.size() + 48);
  msg.append(what);
  msg.push_back(' ');
  msg.append(path);
  msg.append(": ");
  msg.append(DescribeErrno(err));
  return Status(KindOfErrno(err), msg);
}

std::string Status::ToString() const {
  if (ok()) return "OK";
  std::string s = KindName(kind_);
  s.append(": ");
  s.append(msg_);
  return s;
}

Status CorruptionAt(std::string_view file, unsigned long long offset, std::string_view what,
                    const char* source, int line) {
  // Only the source file's own name: the build directory says nothing to the reader of a log.
  std::string_view src = source != nullptr ? source : "?";
  if (std::size_t slash = src.find_last_of('/'); slash != std::string_view::npos) {
    src.remove_prefix(slash + 1);
  }
  std::string msg;
  msg.append(file);
  msg.append(" at offset ");
  msg.append(std::to_string(offset));
  msg.append(": ");
  msg.append(what);
  msg.append(" (");
  msg.append(src);
  msg.push_back(':');
  msg.append(std::to_string(line));
  msg.push_back(')');
  return Status::Corruption(msg);
}

}  // namespace kvd
