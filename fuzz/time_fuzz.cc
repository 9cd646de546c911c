// Fuzz target: the time parsers and format strings of the class library.
// Input: one byte of switches, twelve bytes of a time (Julian day, tod, level; little-endian
// 32-bit, used as they stand or folded into the valid range), then a format and a text split at
// the first NUL. What must hold, besides running clean under the sanitizers:
//   - AssignSortableString yields the null time exactly when IsValidSortableString refuses the
//     text; a text of an existing date and time is written back as it was (hex case aside).
//   - AsFormatedString gives the empty text or one of the format's length; where every token of
//     the format is a run of one letter (no YY, no shortened t), KvParseFormatedString reads it
//     back to the time's fields.
//   - KvParseFormatedString never invents a value where it answers false (all seven are 0 then
//     or were read), and a time read by AssignFormatedString is level 0 or null.
//   - a span read from any text is normalised, and its sortable and formatted texts read back.
//   - the calendar functions on any 32-bit values: a date KvIsValidTime accepts goes to a Julian
//     day and back unchanged.
//
// Built as a libFuzzer target (fuzz_time) with KVD_FUZZ, else linked with replay_main.cc into
// fuzz_replay_time, which runs every file of corpus/time through the same function as a test.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/foundation/kvgran.h"
#include "lib/system/kvtime.h"

bool g_fuzz_report = false;

namespace {

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "time fuzz: %s\n", what);
    std::abort();
  }
}

std::int32_t Int32At(const std::uint8_t* p) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
                                   static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24);
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool IsSpanNormal(const KvTimeSpan& s) {
  const long d = s.GetDays(), t = s.GetTimeOfDay();
  return t > -86400000 && t < 86400000 && (d == 0 || t == 0 || (d > 0) == (t > 0));
}

void Sortable(const std::string& text, bool level) {
  KvTime t(0L);
  t.AssignSortableString(text.c_str(), level);
  const bool valid = KvTime::IsValidSortableString(text.c_str(), level);
  Check(t.IsNull() == (!valid || (level && t.GetTimelevel() < 0)), "null exactly for a refused text");
  if (!valid) return;
  const char* digits = text.c_str() + (level ? 8 : 0);
  auto num = [&](int at, int n) { return std::strtol(std::string(digits + at, static_cast<std::size_t>(n)).c_str(), nullptr, 10); };
  if (KvIsValidTime(num(0, 4), num(4, 2), num(6, 2), num(8, 2), num(10, 2), num(12, 2), num(14, 3)) && num(0, 4) > 0)
    Check(Lower(text) == Lower(t.AsSortableString(level).GetCharPtr()), "an existing time is written back as read");
}

// A token ends at a blank or at punctuation (the C locale's, which the fuzzer keeps).
bool IsSeparator(char c) { return c == ' ' || c == '\t' || std::ispunct(static_cast<unsigned char>(c)); }

// Whether every token of the format is a run of one token letter, none of them YY or t, tt.
bool ReadsBack(const char* f) {
  for (const char* p = f; *p != '\0';) {
    if (IsSeparator(*p)) {
      ++p;
      continue;
    }
    const char c = *p;
    std::size_t run = 0;
    while (p[run] == c) ++run;
    const char next = p[run];
    if (next != '\0' && !IsSeparator(next)) return false;
    if (std::strchr("YMDhmst", c) == nullptr || (c == 'Y' && run != 4) || (c == 't' && run != 3)) return false;
    p += run;
  }
  return true;
}

void Formats(const KvTime& t, const std::string& format, const std::string& text) {
  const KvString out = t.AsFormatedString(format.c_str());
  Check(out.IsEmpty() || out.GetLength() == static_cast<long>(format.size()), "a formatted time has the format's length");
  if (out.IsNotEmpty() && t.IsValid() && ReadsBack(format.c_str())) {
    long y, m, d, h, min, s, ms;
    Check(KvParseFormatedString(format.c_str(), out, y, m, d, h, min, s, ms), "a written time reads");
    auto has = [&](char c) { return format.find(c) != std::string::npos; };
    Check(!has('Y') || y == t.GetYear(), "year reads back");
    Check(!has('M') || m == t.GetMonth(), "month reads back");
    Check(!has('D') || d == t.GetDayOfMonth(), "day reads back");
    Check(!has('h') || h == t.GetHour(), "hour reads back");
    Check(!has('m') || min == t.GetMinute(), "minute reads back");
    Check(!has('s') || s == t.GetSecond(), "second reads back");
    Check(!has('t') || ms == t.GetMillisecond(), "thousandth reads back");
  }
  KvTime read(0L);
  read.SetTimelevel(5);
  read.AssignFormatedString(format.c_str(), text.c_str());
  Check(read.IsNull() || read.GetTimelevel() == 0, "a read time is level 0 or null");
  long y = 1, m = 1, d = 1, h = 1, min = 1, s = 1, ms = 1;
  if (!KvParseFormatedString(format.c_str(), text.c_str(), y, m, d, h, min, s, ms) && text.empty())
    Check(y == 0 && m == 0 && d == 0 && h == 0 && min == 0 && s == 0 && ms == 0, "an empty text reads zeros");
}

// Whether a token of the format ends in t and is shorter than three characters.
bool HasShortThousandth(const std::string& f) {
  std::size_t start = 0;
  for (std::size_t i = 0; i <= f.size(); ++i) {
    if (i < f.size() && !IsSeparator(f[i])) continue;
    if (i > start && f[i - 1] == 't' && i - start < 3) return true;
    start = i + 1;
  }
  return false;
}

void Spans(const KvTime& a, const KvTime& b, const std::string& format, const std::string& text) {
  KvTimeSpan s;
  s.AssignSortableString(text.c_str());
  Check(IsSpanNormal(s), "a span read from text is normalised");
  const KvString sortable = s.AsSortableString();
  Check(KvTimeSpan().AssignSortableString(sortable) == s, "a span's sortable text reads back");
  KvTimeSpan f;
  f.AssignFormatedString(format.c_str(), text.c_str());
  Check(IsSpanNormal(f), "a span read by a format is normalised");

  const KvTimeSpan d = a - b;
  Check(IsSpanNormal(d), "a difference is normalised");
  const KvString written = d.AsFormatedString(format.c_str());
  if (written.IsNotEmpty() && d.IsPositive() && d.GetDays() < 100) {
    Check(written.GetLength() == static_cast<long>(format.size()), "a short positive span has the format's length");
    const KvTimeSpan back = KvTimeSpan().AssignFormatedString(format.c_str(), written);
    // A shortened thousandth (t, tt) reads back as so many milliseconds, not as its tenths.
    if (back.IsNotNull() && !HasShortThousandth(format))
      Check(std::strcmp(back.AsFormatedString(format.c_str()), written) == 0, "a written span reads back");
  }
}

void Calendar(std::int32_t y, std::int32_t m, std::int32_t d) {
  (void)KvDate2DayOfYear(y, m, d);
  (void)KvDayOfYear2DayOfWeek(y, d);
  (void)KvDayOfYear2Month(y, d);
  (void)KvYear2EasterSunday(y);
  (void)Greg2ul(y, m, d);
  std::uint32_t pc = 0;
  KvDateAndTime2PcTime(pc, y, m, d, m, d, y);
  (void)KvTimeSpan(y, m, d, y, m).GetTotalMilliseconds();
  KvTime t(y, m);
  t.Normalize();
  (void)t.GetPcTime();
  (void)(t - KvTime(d, y));
  if (m >= 1 && m <= 12) (void)KvDaysInMonth(y, m);
  if (KvIsValidTime(y, m, d, 0, 0, 0, 0)) {
    long yy, mm, dd;
    KvJulian2Date(KvDate2Julian(y, m, d), &yy, &mm, &dd);
    Check(yy == y && mm == m && dd == d, "a valid date goes to a Julian day and back");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An arena of its own for the strings (the class library alone reserves none).
  static const bool arena = [] {
    KvGranularity::_AllocMem(std::size_t{64} << 20);
    return true;
  }();
  (void)arena;
  if (size < 13) return 0;
  const std::uint8_t flags = data[0];
  const std::int32_t jul = Int32At(data + 1), tod = Int32At(data + 5), level = Int32At(data + 9);
  // Folded into the valid range unless the first switch asks for the values as they stand.
  KvTime t = (flags & 1) != 0 ? KvTime(jul, tod)
                              : KvTime(KVTIME_MIN_JULIAN + static_cast<long>(static_cast<std::uint32_t>(jul) %
                                                                              (KVTIME_MAX_JULIAN - KVTIME_MIN_JULIAN + 1)),
                                       static_cast<long>(static_cast<std::uint32_t>(tod) % 86400000u));
  if ((flags & 2) != 0) t.SetTimelevel(level);
  const std::string rest(reinterpret_cast<const char*>(data + 13), size - 13);
  const std::size_t nul = rest.find('\0');
  const std::string format = rest.substr(0, nul);
  const std::string second = nul == std::string::npos ? std::string() : rest.substr(nul + 1);
  const std::string text = second.substr(0, second.find('\0'));
  if (g_fuzz_report) std::fprintf(stderr, "  switches %02x, format of %zu and text of %zu bytes\n", flags, format.size(), text.size());

  Sortable(text, (flags & 4) != 0);
  Sortable(format, (flags & 4) == 0);
  Formats(t, format, text);
  Spans(t, KvTime(tod, jul), format, text);
  Calendar(jul, tod, level);
  return 0;
}
