// Status: the one error value that travels upward inside the library.
//
// Every internal operation that can fail returns a Status. It carries a kind and a message that
// names the file and, for a damaged file, the byte offset and the source line that noticed it.
// No bare -1 or errno leaves the platform layer. Only the C interfaces turn a Status into the
// numbers their callers know, each through one table.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace kvd {

class Status {
 public:
  enum class Kind : unsigned char {
    kOk = 0,
    kNotFound,         // the file or the thing named does not exist
    kCorruption,       // bytes on disk break the format's rules
    kIoError,          // the system call failed for another reason
    kBusy,             // a lock is held by someone else, or another opener prevents the act
    kInvalidArgument,  // the caller asked for something meaningless
    kNoSpace,          // the disk is full (ENOSPC, EDQUOT, EFBIG)
    kUnsupported,      // a valid format feature that this engine does not handle
    kReadOnly,         // a write to something opened or marked read-only
    kExists,           // the target exists and the caller asked us not to replace it
  };

  Status() = default;  // ok
  static Status Ok() { return Status(); }
  static Status NotFound(std::string_view msg) { return Status(Kind::kNotFound, msg); }
  static Status Corruption(std::string_view msg) { return Status(Kind::kCorruption, msg); }
  static Status IoError(std::string_view msg) { return Status(Kind::kIoError, msg); }
  static Status Busy(std::string_view msg) { return Status(Kind::kBusy, msg); }
  static Status InvalidArgument(std::string_view msg) { return Status(Kind::kInvalidArgument, msg); }
  static Status NoSpace(std::string_view msg) { return Status(Kind::kNoSpace, msg); }
  static Status Unsupported(std::string_view msg) { return Status(Kind::kUnsupported, msg); }
  static Status ReadOnly(std::string_view msg) { return Status(Kind::kReadOnly, msg); }
  static Status Exists(std::string_view msg) { return Status(Kind::kExists, msg); }

  // From a failed system call: the kind follows errno (ENOENT -> kNotFound, EAGAIN/EACCES/EWOULDBLOCK
  // on a lock -> kBusy, ENOSPC -> kNoSpace, ...); the message is "<what> <path>: <strerror>".
  static Status FromErrno(int err, std::string_view what, std::string_view path);

  bool ok() const { return kind_ == Kind::kOk; }
  Kind kind() const { return kind_; }
  bool IsNotFound() const { return kind_ == Kind::kNotFound; }
  bool IsCorruption() const { return kind_ == Kind::kCorruption; }
  bool IsBusy() const { return kind_ == Kind::kBusy; }
  const std::string& message() const { return msg_; }
  std::string ToString() const;  // "Corruption: <message>", "OK"

 private:
  Status(Kind k, std::string_view msg) : kind_(k), msg_(msg) {}
  Kind kind_ = Kind::kOk;
  std::string msg_;
};

// Builds the status for a damaged file: "<file> at offset <off>: <what> (<source>:<line>)".
Status CorruptionAt(std::string_view file, unsigned long long offset, std::string_view what,
                    const char* source, int line);
#define KVD_CORRUPT(file, offset, what) ::kvd::CorruptionAt((file), (offset), (what), __FILE__, __LINE__)

// Early return on failure: KVD_RETURN_IF_ERROR(file.ReadAt(...));
#define KVD_RETURN_IF_ERROR(expr)        \
  do {                                   \
    ::kvd::Status _kvd_s = (expr);       \
    if (!_kvd_s.ok()) return _kvd_s;     \
  } while (0)

}  // namespace kvd
