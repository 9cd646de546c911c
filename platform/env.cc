// The process and its surroundings: executable directory, profile files, clocks, sleeping, and the
// message box's stand-in.
#include "platform/env.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "platform/file.h"
#include "platform/path.h"

namespace kvd::platform {

// ---------------------------------------------------------------------------------------------
// Executable directory

std::string ExecutableDir() {
  std::vector<char> buf(256);
  for (;;) {
    ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0) return std::string();
    if (static_cast<std::size_t>(n) < buf.size()) {
      std::string exe(buf.data(), static_cast<std::size_t>(n));
      std::size_t slash = exe.find_last_of('/');
      return slash == std::string::npos ? std::string() : exe.substr(0, slash + 1);
    }
    if (buf.size() >= (std::size_t{1} << 20)) return std::string();
    buf.resize(buf.size() * 2);  // the name may have been cut; ask again with more room
  }
}

// ---------------------------------------------------------------------------------------------
// Profile files
//
// A profile file is a list of lines; the ones that matter are
//   [Section]            a section header: the name is what lies between '[' and ']', trimmed
//   key = value          a key of the section above it: split at the first '=', both sides trimmed
// and everything else (blank lines, ';' comments, keys before any section, junk) is carried along
// untouched when the file is rewritten. When a section or key appears twice, the first one counts.

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// One line of the file: its text without the end of line, and the end of line it had.
struct ProfileLine {
  std::string text;  // without '\n'; a '\r' before it is in `eol`
  std::string eol;   // "\r\n", "\n", or "" for a last line without one
};

std::vector<ProfileLine> SplitLines(std::string_view content) {
  std::vector<ProfileLine> lines;
  while (!content.empty()) {
    std::size_t nl = content.find('\n');
    std::string_view line = content.substr(0, nl);
    std::string eol;
    if (nl != std::string_view::npos) {
      eol = "\n";
      if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
        eol = "\r\n";
      }
      content.remove_prefix(nl + 1);
    } else {
      content = std::string_view();
    }
    lines.push_back(ProfileLine{std::string(line), std::move(eol)});
  }
  return lines;
}

// The section name when `line` is a header.
std::optional<std::string_view> SectionOf(std::string_view line) {
  line = Trim(line);
  if (line.empty() || line.front() != '[') return std::nullopt;
  line.remove_prefix(1);
  return Trim(line.substr(0, line.find(']')));
}

// Key and raw value when `line` is a key line.
bool KeyOf(std::string_view line, std::string_view* key, std::string_view* value) {
  line = Trim(line);
  if (line.empty() || line.front() == ';' || line.front() == '[') return false;
  std::size_t eq = line.find('=');
  if (eq == std::string_view::npos) return false;
  *key = Trim(line.substr(0, eq));
  *value = Trim(line.substr(eq + 1));
  return !key->empty();
}

std::string_view Unquote(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
    value.remove_prefix(1);
    value.remove_suffix(1);
  }
  return value;
}

// The whole file, or nothing when it cannot be read.
std::optional<std::string> ReadWhole(std::string_view file) {
  std::unique_ptr<File> f;
  if (!File::Open(file, OpenMode::kRead, &f).ok()) return std::nullopt;
  std::uint64_t size = 0;
  if (!f->Size(&size).ok() || size > (std::uint64_t{64} << 20)) return std::nullopt;
  std::string content(static_cast<std::size_t>(size), '\0');
  std::size_t got = 0;
  if (!f->ReadAt(0, content.data(), content.size(), &got).ok()) return std::nullopt;
  content.resize(got);
  return content;
}

// Where a key lies: the index of its section's header and of its own line (npos when absent).
struct KeyPlace {
  std::size_t section = std::string::npos;  // header line of the first matching section
  std::size_t section_end = 0;              // one past the last line of that section
  std::size_t key = std::string::npos;      // the key's line, within [section, section_end)
};

KeyPlace FindKey(const std::vector<ProfileLine>& lines, std::string_view section, std::string_view key) {
  KeyPlace place;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::optional<std::string_view> name = SectionOf(lines[i].text);
    if (!name) continue;
    if (place.section != std::string::npos) {
      place.section_end = i;
      break;
    }
    if (EqualIgnoringCase(*name, section)) place.section = i;
  }
  if (place.section == std::string::npos) return place;
  if (place.section_end <= place.section) place.section_end = lines.size();
  for (std::size_t i = place.section + 1; i < place.section_end; ++i) {
    std::string_view k, v;
    if (KeyOf(lines[i].text, &k, &v) && EqualIgnoringCase(k, key)) {
      place.key = i;
      break;
    }
  }
  return place;
}

// The value as written in the file (trimmed, unquoted), or nothing.
std::optional<std::string> LookUp(std::string_view file, std::string_view section, std::string_view key) {
  std::optional<std::string> content = ReadWhole(file);
  if (!content) return std::nullopt;
  std::vector<ProfileLine> lines = SplitLines(*content);
  KeyPlace place = FindKey(lines, Trim(section), Trim(key));
  if (place.key == std::string::npos) return std::nullopt;
  std::string_view k, v;
  KeyOf(lines[place.key].text, &k, &v);
  return std::string(Unquote(v));
}

bool HasLineBreak(std::string_view s) { return s.find_first_of("\r\n") != std::string_view::npos; }

}  // namespace

std::string ReadProfileString(std::string_view file, std::string_view section, std::string_view key,
                              std::string_view def, std::size_t max_len) {
  std::optional<std::string> value = LookUp(file, section, key);
  std::string out = value ? std::move(*value) : std::string(def);
  // Room for max_len - 1 characters and the terminator the callers' buffers need.
  std::size_t room = max_len == 0 ? 0 : max_len - 1;
  if (out.size() > room) out.resize(room);
  return out;
}

int ReadProfileInt(std::string_view file, std::string_view section, std::string_view key, int def) {
  std::optional<std::string> value = LookUp(file, section, key);
  if (!value) return def;
  std::string_view s = *value;
  bool negative = false;
  if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
    negative = s.front() == '-';
    s.remove_prefix(1);
  }
  // Digits up to the first non-digit; beyond the range of int the answer sticks at its limit.
  long long n = 0;
  const long long limit = negative ? -static_cast<long long>(std::numeric_limits<int>::min())
                                   : std::numeric_limits<int>::max();
  for (char c : s) {
    if (c < '0' || c > '9') break;
    n = n * 10 + (c - '0');
    if (n > limit) {
      n = limit;
      break;
    }
  }
  return static_cast<int>(negative ? -n : n);
}

bool WriteProfileString(std::string_view file, std::string_view section, std::string_view key,
                        const char* value) {
  // Names and values that would break the line structure cannot be written faithfully.
  std::string_view trimmed_key = Trim(key);
  if (trimmed_key.empty() || trimmed_key.find('=') != std::string_view::npos || HasLineBreak(key)) return false;
  if (Trim(section).empty() || section.find(']') != std::string_view::npos || HasLineBreak(section)) return false;
  if (value != nullptr && HasLineBreak(value)) return false;

  std::optional<std::string> content = ReadWhole(file);
  if (!content) {
    if (FileExists(file)) return false;  // there, but unreadable: do not overwrite it blindly
    if (value == nullptr) return true;   // nothing to delete
    content.emplace();
  }
  std::vector<ProfileLine> lines = SplitLines(*content);
  // New lines end the way the file's lines already do.
  const std::string eol = (!lines.empty() && lines.front().eol == "\r\n") ? "\r\n" : "\n";
  const std::string new_line = value != nullptr ? std::string(trimmed_key) + "=" + value : std::string();

  KeyPlace place = FindKey(lines, Trim(section), trimmed_key);
  if (value == nullptr) {
    if (place.key == std::string::npos) return true;
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(place.key));
  } else if (place.key != std::string::npos) {
    lines[place.key].text = new_line;
  } else {
    std::size_t at = lines.size();
    std::vector<ProfileLine> added;
    if (place.section == std::string::npos) {
      // A new section at the end, set off by a blank line.
      if (!lines.empty() && !Trim(lines.back().text).empty()) added.push_back(ProfileLine{"", eol});
      added.push_back(ProfileLine{"[" + std::string(Trim(section)) + "]", eol});
    } else {
      // After the section's last non-blank line, so a blank line before the next section stays.
      at = place.section_end;
      while (at > place.section + 1 && Trim(lines[at - 1].text).empty()) --at;
    }
    added.push_back(ProfileLine{new_line, eol});
    if (at > 0 && lines[at - 1].eol.empty()) lines[at - 1].eol = eol;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), added.begin(), added.end());
  }

  std::string out;
  for (const ProfileLine& line : lines) {
    out.append(line.text);
    out.append(line.eol);
  }

  // Written whole under a temporary name beside the file, then put in its place, so that a reader
  // sees the old file or the new one and never half of either.
  static std::atomic<unsigned> counter{0};
  const std::string tmp = std::string(file) + ".kvdtmp." + std::to_string(::getpid()) + "." +
                          std::to_string(counter.fetch_add(1));
  std::unique_ptr<File> f;
  if (!File::Open(tmp, OpenMode::kCreateExclusive, &f).ok()) return false;
  bool ok = f->WriteAt(0, out.data(), out.size()).ok() && f->Sync().ok();
  f.reset();
  if (ok) ok = ReplaceFile(tmp, file).ok();
  if (!ok) RemoveFile(tmp);
  return ok;
}

// ---------------------------------------------------------------------------------------------
// Time

namespace {

LocalTime FromTm(const struct tm& tm, long nanos) {
  LocalTime t;
  t.year = tm.tm_year + 1900;
  t.month = tm.tm_mon + 1;
  t.day = tm.tm_mday;
  t.hour = tm.tm_hour;
  t.minute = tm.tm_min;
  t.second = tm.tm_sec > 59 ? 59 : tm.tm_sec;  // a leap second reads as :59
  t.millis = static_cast<int>(nanos / 1000000);
  t.weekday = tm.tm_wday;
  return t;
}

}  // namespace

LocalTime NowLocal() {
  struct timespec ts;
  ::clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  ::localtime_r(&ts.tv_sec, &tm);
  return FromTm(tm, ts.tv_nsec);
}

LocalTime NowUtc() {
  struct timespec ts;
  ::clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  ::gmtime_r(&ts.tv_sec, &tm);
  return FromTm(tm, ts.tv_nsec);
}

std::uint64_t MonotonicMillis() {
  struct timespec ts;
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::uint64_t>(ts.tv_sec) * 1000u + static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u;
}

unsigned long ProcessId() { return static_cast<unsigned long>(::getpid()); }

void SleepMillis(unsigned ms) {
  if (ms == 0) {
    ::sched_yield();
    return;
  }
  struct timespec want;
  want.tv_sec = static_cast<time_t>(ms / 1000);
  want.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  struct timespec left;
  // A signal cuts the sleep short; sleep the rest.
  while (::nanosleep(&want, &left) != 0 && errno == EINTR) want = left;
}

// ---------------------------------------------------------------------------------------------
// Message box

int ShowMessage(std::string_view text, std::string_view caption, unsigned style) {
  // There is no desktop here and nobody to press a button. The nearest honest thing is to put the
  // message where an operator or a log collector will find it, on one line so that it stays one
  // record, and to answer as if the default button (OK) had been pressed.
  std::string line;
  line.reserve(text.size() + caption.size() + 24);
  line.push_back('[');
  line.append(caption);
  line.append("] ");
  line.append(text);
  if (style != 0) {
    char note[32];
    std::snprintf(note, sizeof(note), " (style 0x%x)", style);
    line.append(note);
  }
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  line.push_back('\n');
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  return 1;
}

}  // namespace kvd::platform
