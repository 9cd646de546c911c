#include "lib/system/kvblob.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lib/foundation/kvfail.h"
#include "lib/system/kvfile.h"
#include "platform/file.h"
#include "platform/status.h"

namespace {

constexpr char kSource[] = "KvBlob";
// The lines the two reported statements have always carried; logs are compared by them.
constexpr unsigned kLineNoClass = 57;
constexpr unsigned kLineShortRead = 186;

constexpr std::uint64_t kFourGigabytes = std::uint64_t{1} << 32;

// The class of a physical size, or -1 (also for sizes below 1 and above the largest class).
std::int32_t ClassOf(long physical) {
  if (physical <= 0) return -1;
  return KvGranularity::_GetGranularityIndex(static_cast<std::size_t>(physical));
}

// atoi of a 32-bit int: white space, a sign, digits; a value beyond 32 bits is clamped.
std::int32_t Atoi32(const char* text) {
  const long long v = std::strtoll(text, nullptr, 10);  // clamps at 64 bits, never overflows
  return static_cast<std::int32_t>(std::clamp<long long>(v, INT32_MIN, INT32_MAX));
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The block

KvBlob::Take KvBlob::_Take(long count, unsigned long style) {
  if (count == 0) {
    m_pbData = nullptr;
    m_cBytes = 0;
    m_dwStyle = static_cast<std::uint32_t>(style);
    return Take::kMoved;
  }
  const std::int32_t wanted = ClassOf(_PhysicalSize(count, style));
  if (wanted < 0) {
    KvAssertFail("pogranNew != NULL", kSource, kLineNoClass);
    return Take::kRefused;
  }
  if (m_pbData != nullptr && ClassOf(_PhysicalSize(m_cBytes, m_dwStyle)) == wanted) {
    m_cBytes = static_cast<std::int32_t>(count);
    m_dwStyle = static_cast<std::uint32_t>(style);
    return Take::kKept;
  }
  // Taken before anything changes, so that an arena out of memory leaves the blob as it was.
  void* fresh = KvGranularity::_Alloc(static_cast<std::size_t>(_PhysicalSize(count, style)), _GetInternalAllocWatcher());
  m_pbData = static_cast<unsigned char*>(fresh);
  m_cBytes = static_cast<std::int32_t>(count);
  m_dwStyle = static_cast<std::uint32_t>(style);
  return Take::kMoved;
}

bool KvBlob::Alloc(long count, unsigned long style) {
  const Take t = _Take(count, style);
  if (t != Take::kRefused) SetTerminatingZero();
  return t == Take::kMoved;
}

void KvBlob::Free(unsigned char* data, long count, unsigned long style) {
  if (data == nullptr) return;
  KvGranularity::_Free(data, static_cast<std::size_t>(_PhysicalSize(count, style)), _GetInternalAllocWatcher());
}

void KvBlob::SetTerminatingZero() {
  if (m_dwStyle == KVBLOB_SZ && m_pbData != nullptr) m_pbData[m_cBytes] = 0;
}

// ---------------------------------------------------------------------------------------------
// Construction

KvBlob::KvBlob(unsigned long style) : m_dwStyle(static_cast<std::uint32_t>(style)) {}

KvBlob::KvBlob(const unsigned char* data, long count, unsigned long style)
    : m_dwStyle(static_cast<std::uint32_t>(style)) {
  Assign(data, count, style);
}

KvBlob::KvBlob(const KvBlob& other) : m_dwStyle(other.m_dwStyle) {
  Assign(other.m_pbData, other.m_cBytes, other.m_dwStyle);
}

KvBlob& KvBlob::operator=(const KvBlob& other) {
  if (this != &other) Assign(other.m_pbData, other.m_cBytes, other.m_dwStyle);
  return *this;
}

KvBlob::~KvBlob() { Free(m_pbData, m_cBytes, m_dwStyle); }

// ---------------------------------------------------------------------------------------------
// Content

bool KvBlob::_Resize(long count) {
  unsigned char* const old = m_pbData;
  const long old_count = m_cBytes;
  const unsigned long style = m_dwStyle;
  const Take t = _Take(count, style);
  if (t == Take::kRefused) return false;
  if (t == Take::kMoved) {
    if (old != nullptr && m_pbData != nullptr) std::memcpy(m_pbData, old, static_cast<std::size_t>(std::min(old_count, count)));
    Free(old, old_count, style);
  }
  SetTerminatingZero();
  return true;
}

void KvBlob::SetByteCount(long count) { (void)_Resize(count); }

KvBlob& KvBlob::Assign(const unsigned char* data, long count, unsigned long style) {
  unsigned char* const old = m_pbData;
  const long old_count = m_cBytes;
  const unsigned long old_style = m_dwStyle;
  const Take t = _Take(count, style);
  if (t == Take::kRefused) return *this;
  // From a source in the old block too: a moved blob frees that block only after the copy.
  if (data != nullptr && count > 0) std::memmove(m_pbData, data, static_cast<std::size_t>(count));
  if (t == Take::kMoved) Free(old, old_count, old_style);
  SetTerminatingZero();
  return *this;
}

KvBlob& KvBlob::Append(const unsigned char* data, long count) {
  if (count <= 0) return *this;
  unsigned char* const old = m_pbData;
  const long old_count = m_cBytes;
  const unsigned long style = m_dwStyle;
  const Take t = _Take(old_count + count, style);
  if (t == Take::kRefused) return *this;
  // The new bytes first: they may come from the old block's own content.
  if (data != nullptr) std::memmove(m_pbData + old_count, data, static_cast<std::size_t>(count));
  if (t == Take::kMoved) {
    if (old != nullptr) std::memcpy(m_pbData, old, static_cast<std::size_t>(old_count));
    Free(old, old_count, style);
  }
  SetTerminatingZero();
  return *this;
}

KvBlob& KvBlob::Fill(unsigned char value) {
  if (m_pbData != nullptr) std::memset(m_pbData, value, static_cast<std::size_t>(m_cBytes));
  return *this;
}

long KvBlob::ReadBytes(long& pos, unsigned char* out, long count) const {
  if (pos < 0 || pos >= m_cBytes) return 0;
  const long n = std::min<long>(count, m_cBytes - pos);
  if (n <= 0 || out == nullptr) return 0;
  std::memcpy(out, m_pbData + pos, static_cast<std::size_t>(n));
  pos += n;
  return n;
}

// ---------------------------------------------------------------------------------------------
// Files

bool KvBlob::ReadFromFile(const char* name) {
  using kvd::platform::File;
  using kvd::platform::OpenMode;
  if (name == nullptr) return false;
  // Opened for reading, or made empty when it does not exist (by anyone: one made by another
  // opener in between is opened).
  std::unique_ptr<File> file;
  kvd::Status s = File::Open(name, OpenMode::kRead, &file);
  if (s.IsNotFound()) {
    s = File::Open(name, OpenMode::kCreateExclusive, &file);
    if (s.kind() == kvd::Status::Kind::kExists) s = File::Open(name, OpenMode::kRead, &file);
  }
  if (!s.ok()) return false;
  const std::uint64_t size = file->size_at_open();
  if (size >= kFourGigabytes) return false;
  if (!_Resize(static_cast<long>(size))) return false;  // never reads into a block it did not get
  std::size_t got = 0;
  if (size > 0 && !file->ReadAt(0, m_pbData, static_cast<std::size_t>(size), &got).ok()) got = 0;
  if (static_cast<std::uint64_t>(got) != size) KvAssertFail("m_cBytes == (long)dwBytesRead", kSource, kLineShortRead);
  return true;
}

bool KvBlob::WriteToFile(const char* name) const {
  return KvWriteBufferToFile(name, m_pbData, static_cast<unsigned long>(m_cBytes));
}

// ---------------------------------------------------------------------------------------------
// 32-bit values

unsigned long KvBlob::GetDWordAt(long index) const {
  if (index < 0 || index >= (static_cast<long>(m_cBytes) + 3) / 4) KvFail("KvBlob::GetDWordAt(): illegal index");
  std::uint32_t v;
  std::memcpy(&v, m_pbData + index * 4, sizeof v);
  return v;
}

void KvBlob::SetDWordAt(long index, unsigned long value) {
  if (index < 0 || index >= (static_cast<long>(m_cBytes) + 3) / 4) KvFail("KvBlob::SetDWordAt(): illegal index");
  const std::uint32_t v = static_cast<std::uint32_t>(value);
  std::memcpy(m_pbData + index * 4, &v, sizeof v);
  SetTerminatingZero();  // a value in the last bytes may have reached over the zero byte
}

// ---------------------------------------------------------------------------------------------

void KvMemDumpString2Blob(KvString text, KvBlob& blob) {
  text.AllTrim();
  blob.SetByteCount(text.GetLength() / 2);
  for (;;) {
    const KvString token = text.ExtractToken(" \t\n");
    if (token.IsEmpty()) break;
    const unsigned char byte = static_cast<unsigned char>(Atoi32(token) & 0xFF);
    blob.Append(&byte, 1);
  }
}
