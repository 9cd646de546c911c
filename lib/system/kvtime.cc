#include "lib/system/kvtime.h"

#include <climits>
#include <cstring>
#include <ctime>
#include <string>

#include "lib/foundation/kvfail.h"
#include "platform/env.h"

namespace {

using i32 = std::int32_t;
using u32 = std::uint32_t;
using i64 = std::int64_t;

// 32-bit arithmetic as the interface's quantities have it: a `long` argument counts by its low
// 32 bits, and sums and products wrap instead of overflowing. Division is left to the caller:
// every divisor here is a positive constant, so truncating division of an i32 is defined.
constexpr i32 W(long v) { return static_cast<i32>(static_cast<u32>(v)); }
constexpr i32 Add(i32 a, i32 b) { return static_cast<i32>(static_cast<u32>(a) + static_cast<u32>(b)); }
constexpr i32 Sub(i32 a, i32 b) { return static_cast<i32>(static_cast<u32>(a) - static_cast<u32>(b)); }
constexpr i32 Mul(i32 a, i32 b) { return static_cast<i32>(static_cast<u32>(a) * static_cast<u32>(b)); }

constexpr i32 kMsPerDay = 86400000;
constexpr i32 kSecondsPerDay = 86400;
constexpr i32 kJulianOf1970 = 2440588;      // 1 January 1970
constexpr i32 kJulianOf1601 = 2305814;      // 1 January 1601, the start of a _FILETIME count
constexpr i32 kJulianOfDayZero = 1721425;   // the day before 1 January 1, day 0 of AutCalcGreg's count
constexpr u32 kPcTimeFrom2038 = 0x7FFFFFFFu;

// The source name and the fixed line numbers the time module's reports carry.
constexpr const char* kSource = "KvTime";
constexpr unsigned kLineDaysInMonth = 279;
constexpr unsigned kLineBufferWithLevel = 1173;
constexpr unsigned kLineBuffer = 1188;

// Date to Julian day (ACM algorithm 199) and back, on 32-bit values.
i32 Date2Julian(i32 y, i32 m, i32 d) {
  if (m < 3) {
    m = Add(m, 9);
    y = Sub(y, 1);
  } else {
    m = Sub(m, 3);
  }
  const i32 c = y / 100, ya = y % 100;
  return Add(Add(Add(Add(Mul(146097, c) / 4, Mul(1461, ya) / 4), Add(Mul(153, m), 2) / 5), d), 1721119);
}

void Julian2Date(i32 jul, i32& y, i32& m, i32& d) {
  const i32 j = Sub(Mul(4, Sub(jul, 1721119)), 1);
  const i32 c = j / 146097;
  const i32 k = Add(Mul(j % 146097 / 4, 4), 3);
  const i32 ya = k / 1461;
  const i32 n = Sub(Mul(Add(k % 1461, 4) / 4, 5), 3);
  const i32 mm = n / 153;
  d = Add(n % 153, 5) / 5;
  y = Add(Mul(100, c), ya);
  if (mm >= 10) {
    m = mm - 9;
    y = Add(y, 1);
  } else {
    m = mm + 3;
  }
}

i32 Time2Tod(i32 h, i32 min, i32 s, i32 ms) {
  return Add(Mul(Add(Mul(Add(Mul(h, 60), min), 60), s), 1000), ms);
}

bool IsLeap(i32 y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

// Greg2ul's day count: 367y - 7(y + (m + 9) / 12) / 4 + 275m / 9 + d, less the days up to 1970.
// (The count's half days, 1721013.5 and 2440587.5, cancel.)
u32 PcTimeOfDate(i32 y, i32 m, i32 d) {
  if (y < 1970) return 0;
  if (y >= 2038) return kPcTimeFrom2038;
  const i32 days = Add(Sub(Add(Sub(Mul(367, y), Mul(7, Add(y, Add(m, 9) / 12)) / 4), Mul(275, m) / 9), 719574), d);
  return static_cast<u32>(days) * static_cast<u32>(kSecondsPerDay);
}

u32 Julian2PcTime(i32 jul, i32 tod) {
  i32 y, m, d;
  Julian2Date(jul, y, m, d);
  if (y < 1970) return 0;
  return PcTimeOfDate(y, m, d) + static_cast<u32>(tod / 1000);
}

// A difference of two 32-bit fields with the right sign: clamped to +-INT_MAX.
int Difference(i32 a, i32 b) {
  const i64 d = static_cast<i64>(a) - b;
  if (d > INT_MAX) return INT_MAX;
  if (d < -INT_MAX) return -INT_MAX;
  return static_cast<int>(d);
}

// --- Digits -------------------------------------------------------------------------------------

// Writes the last `n` decimal digits of `v` at p (no sign).
inline void PutDigits(char* p, u32 v, int n) {
  for (int i = n - 1; i >= 0; --i) {
    p[i] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
}

// "00" .. "99".
struct TwoDigits {
  char pairs[200] = {};
  constexpr TwoDigits() {
    for (int i = 0; i < 100; ++i) {
      pairs[2 * i] = static_cast<char>('0' + i / 10);
      pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
  }
};
constexpr TwoDigits kTwoDigits;

// The last two decimal digits of v at p.
inline void Put2(char* p, u32 v) { std::memcpy(p, kTwoDigits.pairs + 2 * (v % 100), 2); }

// Size of a 32-bit value, also for INT_MIN.
inline u32 Magnitude(i32 v) { return v < 0 ? 0u - static_cast<u32>(v) : static_cast<u32>(v); }

// Writes v as printf's "%+N.Nd" does: the sign always, then at least `n` digits. Answers the end.
char* PutSigned(char* p, i32 v, int n) {
  *p++ = v < 0 ? '-' : '+';
  u32 m = Magnitude(v);
  char tmp[10];
  int len = 0;
  do {
    tmp[len++] = static_cast<char>('0' + m % 10);
    m /= 10;
  } while (m != 0);
  for (int i = len; i < n; ++i) *p++ = '0';
  while (len > 0) *p++ = tmp[--len];
  return p;
}

// Writes u with at least `n` digits (all of them when there are more). Answers the end.
char* PutAtLeast(char* p, u32 u, int n) {
  char tmp[10];
  int len = 0;
  do {
    tmp[len++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  for (int i = len; i < n; ++i) *p++ = '0';
  while (len > 0) *p++ = tmp[--len];
  return p;
}

inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

inline int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The value of n decimal digits at p (checked by the caller).
inline i32 ReadDigits(const char* p, int n) {
  i32 v = 0;
  for (int i = 0; i < n; ++i) v = v * 10 + (p[i] - '0');
  return v;
}

// strtol of a 32-bit long over at most n bytes of s: blanks, a sign, digits; a value beyond
// 32 bits is clamped to LONG_MAX or LONG_MIN of 32 bits, and no digit reads 0.
i32 Strtol32(const char* s, std::size_t n) {
  std::size_t i = 0;
  while (i < n && (s[i] == ' ' || (s[i] >= '\t' && s[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < n && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
  i64 v = 0;
  for (; i < n && IsDigit(s[i]); ++i) {
    v = v * 10 + (s[i] - '0');
    if (v > i64{INT_MAX} + 1) v = i64{INT_MAX} + 1;  // enough to clamp either way
  }
  if (negative) return v > INT_MAX ? INT_MIN : static_cast<i32>(-v);
  return v > INT_MAX ? INT_MAX : static_cast<i32>(v);
}

// --- The format language ------------------------------------------------------------------------

// A token ends at a blank or at ASCII punctuation (in any locale). kStop also stops at the NUL.
struct CharTable {
  bool separator[256] = {};
  bool stop[256] = {};
  constexpr CharTable() {
    for (int c = 0; c < 256; ++c) {
      separator[c] = c == ' ' || c == '\t' || (c >= 0x21 && c <= 0x2F) || (c >= 0x3A && c <= 0x40) ||
                     (c >= 0x5B && c <= 0x60) || (c >= 0x7B && c <= 0x7E);
      stop[c] = separator[c] || c == 0;
    }
  }
};
constexpr CharTable kChars;

inline bool IsSeparator(char c) { return kChars.separator[static_cast<unsigned char>(c)]; }
inline bool IsStop(char c) { return kChars.stop[static_cast<unsigned char>(c)]; }

enum class Field { kNone, kYear, kMonth, kDay, kHour, kMinute, kSecond, kThousandth };

// The field of a token of `len` characters ending in `last` in a time's format, or kNone.
inline Field TimeToken(std::size_t len, char last) {
  switch (last) {
    case 'Y': return len == 4 || len == 2 ? Field::kYear : Field::kNone;
    case 'M': return len == 2 ? Field::kMonth : Field::kNone;
    case 'D': return len == 2 ? Field::kDay : Field::kNone;
    case 'h': return len == 2 ? Field::kHour : Field::kNone;
    case 'm': return len == 2 ? Field::kMinute : Field::kNone;
    case 's': return len == 2 ? Field::kSecond : Field::kNone;
    case 't': return len >= 1 && len <= 3 ? Field::kThousandth : Field::kNone;
    default: return Field::kNone;
  }
}

// The same for a span's format: no month and no year.
Field SpanToken(std::size_t len, char last) {
  const Field f = TimeToken(len, last);
  return f == Field::kYear || f == Field::kMonth ? Field::kNone : f;
}

// Walks a format: for each token on_token(field, start, length), for each separator
// on_separator(char). False for a format that breaks the rules (an empty one among them): an
// empty token, a token of another length or letter, two separators in a row. The format may end
// with one separator. The callbacks may have run when it answers false.
template <class Classify, class OnToken, class OnSeparator>
bool WalkFormat(const char* format, Classify classify, OnToken on_token, OnSeparator on_separator) {
  const char* p = format;
  if (p == nullptr || *p == '\0') return false;
  for (;;) {
    const char* q = p;
    while (!IsStop(*q)) ++q;
    const std::size_t len = static_cast<std::size_t>(q - p);
    if (len == 0) return false;
    const Field f = classify(len, q[-1]);
    if (f == Field::kNone) return false;
    on_token(f, static_cast<std::size_t>(p - format), len);
    if (*q == '\0') return true;
    on_separator(*q);
    p = q + 1;
    if (*p == '\0') return true;
    if (IsSeparator(*p)) return false;
  }
}

// The first n digits of the three-digit millisecond.
inline void PutThousandth(char* p, i32 ms, std::size_t n) {
  char three[3];
  PutDigits(three, Magnitude(ms), 3);
  std::memcpy(p, three, n);
}

inline bool IsTokenLetter(char c) {
  return c == 'Y' || c == 'M' || c == 'D' || c == 'h' || c == 'm' || c == 's' || c == 't';
}

// A new string of the n > 0 bytes at p, copied straight into its buffer: the length is known,
// nothing to scan.
KvString MakeText(const char* p, std::size_t n) {
  KvString text;
  text.AllocIfNecessary(n + 1);
  char* dst = text.GetCharPtr();
  std::memcpy(dst, p, n);
  dst[n] = '\0';
  return text;
}

// A buffer for a formatted text: inside for the usual formats, from the heap for long ones.
class TextBuffer {
 public:
  explicit TextBuffer(std::size_t need) {
    if (need > sizeof inner_) {
      outer_.resize(need);
      p_ = outer_.data();
    }
  }
  char* data() { return p_; }

 private:
  char inner_[128];
  std::string outer_;
  char* p_ = inner_;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Free calendar functions

long KvDate2Julian(long y, long m, long d) { return Date2Julian(W(y), W(m), W(d)); }

void KvJulian2Date(long jul, long* y, long* m, long* d) {
  i32 yy, mm, dd;
  Julian2Date(W(jul), yy, mm, dd);
  if (y != nullptr) *y = yy;
  if (m != nullptr) *m = mm;
  if (d != nullptr) *d = dd;
}

long KvTime2Tod(long h, long min, long s, long ms) { return Time2Tod(W(h), W(min), W(s), W(ms)); }

void KvTod2Time(long tod, long* h, long* min, long* s, long* ms) {
  const i32 t = W(tod);
  if (h != nullptr) *h = t / 3600000;
  if (min != nullptr) *min = t / 60000 % 60;
  if (s != nullptr) *s = t / 1000 % 60;
  if (ms != nullptr) *ms = t % 1000;
}

void KvPcTime2DateAndTime(std::uint32_t pc, long& y, long& m, long& d, long& h, long& min, long& s) {
  KvJulian2Date(KvPcTime2Julian(pc), &y, &m, &d);
  const u32 rest = pc % kSecondsPerDay;
  h = static_cast<long>(rest / 3600);
  min = static_cast<long>(rest / 60 % 60);
  s = static_cast<long>(rest % 60);
}

void KvDateAndTime2PcTime(std::uint32_t& pc, long y, long m, long d, long h, long min, long s) {
  if (W(y) < 1970) {
    pc = 0;
    return;
  }
  pc = PcTimeOfDate(W(y), W(m), W(d)) + static_cast<u32>(Add(Mul(Add(Mul(W(h), 60), W(min)), 60), W(s)));
}

long KvPcTime2Julian(std::uint32_t pc) { return static_cast<i32>(pc / kSecondsPerDay) + kJulianOf1970; }

long KvPcTime2Tod(std::uint32_t pc) { return static_cast<i32>(pc % kSecondsPerDay) * 1000; }

std::uint32_t KvJulian2PcTime(long jul, long tod) { return Julian2PcTime(W(jul), W(tod)); }

std::uint32_t Greg2ul(long y, long m, long d) { return PcTimeOfDate(W(y), W(m), W(d)); }

std::uint32_t Greg2ul(const unsigned char ymd[3]) {
  const i32 y = ymd[0] < 90 ? 2000 + ymd[0] : 1900 + ymd[0];
  return PcTimeOfDate(y, ymd[1], ymd[2]);
}

void AutCalcGreg(_KV_DATE* date, std::uint32_t pc) {
  if (date == nullptr) return;
  // Day pc / 86400 + 719163 of the count that gives 1 to 1 January of the year 1.
  const i32 day = static_cast<i32>(pc / kSecondsPerDay) + 719163;
  i32 y, m, d;
  Julian2Date(day + kJulianOfDayZero, y, m, d);
  date->iYear = y;
  date->iMonth = m;
  date->iDay = d;
}

bool KvIsLeapYear(long y) { return IsLeap(W(y)); }

long KvDaysInMonth(long y, long m) {
  static constexpr i32 kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const i32 month = W(m);
  if (month < 1 || month > 12) {
    KvAssertFail("lMonth >= 1 && lMonth <= 12", kSource, kLineDaysInMonth);
    return 0;  // a month that does not exist has no days
  }
  return kDays[month - 1] + (month == 2 && IsLeap(W(y)) ? 1 : 0);
}

long KvDate2DayOfYear(long y, long m, long d) {
  return Add(Sub(Date2Julian(W(y), W(m), W(d)), Date2Julian(W(y), 1, 1)), 1);
}

long KvJulian2DayOfYear(long jul) {
  i32 y, m, d;
  Julian2Date(W(jul), y, m, d);
  return Add(Sub(W(jul), Date2Julian(y, 1, 1)), 1);
}

long KvDayOfYear2Month(long y, long doy) {
  i32 yy, mm, dd;
  Julian2Date(Add(Date2Julian(W(y), 1, 1), Sub(W(doy), 1)), yy, mm, dd);
  return mm;
}

long KvDayOfYear2DayOfMonth(long y, long doy) {
  i32 yy, mm, dd;
  Julian2Date(Add(Date2Julian(W(y), 1, 1), Sub(W(doy), 1)), yy, mm, dd);
  return dd;
}

long KvDayOfYear2DayOfWeek(long y, long doy) {
  const i32 c = Sub(W(y), 1) / 100, ya = Sub(W(y), 1) % 100;
  return Add(Add(Add(Add(Add(ya / 4, W(doy)), Mul(5, c)), c / 4), ya), 28) % 7;
}

long KvJulian2DayOfWeek(long jul) {
  // Julian day 0 was a Monday; the count is floored so that days before it stay in 0 .. 6.
  const i64 r = (static_cast<i64>(W(jul)) + 1) % 7;
  return static_cast<long>(r < 0 ? r + 7 : r);
}

long KvYear2EasterSunday(long year) {
  const i32 y = W(year);
  const i32 g = y % 19 + 1;
  const i32 c = y / 100 + 1;
  const i32 x = Mul(3, c) / 4 - 12;
  const i32 z = Add(Mul(8, c), 5) / 25;
  i32 e = Add(Sub(Add(z, Mul(11, g)), x), 15) % 30;
  if (e == 24 || (e == 25 && g > 11)) ++e;
  i32 n = 44 - e;
  if (n < 21) n += 30;
  n += 7 - Sub(Sub(Add(n, Mul(5, y) / 4), x), 10) % 7;
  return n + 59 + (IsLeap(y) ? 1 : 0);
}

bool KvIsValidTime(long y, long m, long d, long h, long min, long s, long ms) {
  i32 yy, mm, dd;
  Julian2Date(Date2Julian(W(y), W(m), W(d)), yy, mm, dd);
  if (yy != W(y) || mm != W(m) || dd != W(d)) return false;
  return W(h) >= 0 && W(h) <= 23 && W(min) >= 0 && W(min) <= 59 && W(s) >= 0 && W(s) <= 59 && W(ms) >= 0 &&
         W(ms) <= 999;
}

bool KvParseFormatedString(const char* format, const char* text, long& y, long& m, long& d, long& h, long& min,
                           long& s, long& ms) {
  y = m = d = h = min = s = ms = 0;
  if (text == nullptr || *text == '\0') return false;
  const char* f = format != nullptr ? format : "";
  const char* t = text;
  // Characters of the format that are no token letter skip as many of the text.
  auto skip = [&] {
    for (; *f != '\0' && !IsTokenLetter(*f); ++f)
      if (*t != '\0') ++t;
  };
  skip();
  while (*f != '\0' && *t != '\0') {
    const char letter = *f;
    std::size_t run = 1;
    while (f[run] == letter) ++run;
    std::size_t digits = 0;
    while (IsDigit(t[digits])) ++digits;
    if (IsTokenLetter(f[run]) && digits > run) digits = run;
    const bool run_ok = letter == 'Y' ? run == 2 || run == 4 : letter == 't' ? run <= 3 : run == 2;
    if (!run_ok || digits == 0) return false;
    u32 value = 0;  // wraps like the 32-bit count it is
    for (std::size_t i = 0; i < digits; ++i) value = value * 10u + static_cast<u32>(t[i] - '0');
    const i32 v = static_cast<i32>(value);
    switch (letter) {
      case 'Y': y = run == 2 ? (v < 90 ? 2000 + v : Add(1900, v)) : v; break;
      case 'M': m = v; break;
      case 'D': d = v; break;
      case 'h': h = v; break;
      case 'm': min = v; break;
      case 's': s = v; break;
      default: ms = v; break;  // 't'
    }
    f += run;
    t += digits;
    skip();
  }
  return true;
}

int KvCompareTime(const KvTime& a, const KvTime& b) {
  if (a.GetTimelevel() != b.GetTimelevel()) return Difference(W(a.GetTimelevel()), W(b.GetTimelevel()));
  if (a.GetJulianDate() != b.GetJulianDate()) return Difference(W(a.GetJulianDate()), W(b.GetJulianDate()));
  return Difference(W(a.GetTimeOfDay()), W(b.GetTimeOfDay()));
}
int KvCompareTime(const KvTime* a, const KvTime* b) { return KvCompareTime(*a, *b); }

int KvCompareTimeIgnoreMilliseconds(const KvTime& a, const KvTime& b) {
  if (a.GetTimelevel() != b.GetTimelevel()) return Difference(W(a.GetTimelevel()), W(b.GetTimelevel()));
  if (a.GetJulianDate() != b.GetJulianDate()) return Difference(W(a.GetJulianDate()), W(b.GetJulianDate()));
  return Difference(W(a.GetTimeOfDay()) / 1000, W(b.GetTimeOfDay()) / 1000);
}
int KvCompareTimeIgnoreMilliseconds(const KvTime* a, const KvTime* b) {
  return KvCompareTimeIgnoreMilliseconds(*a, *b);
}

int KvCompareTimeSpan(const KvTimeSpan& a, const KvTimeSpan& b) {
  if (a.GetDays() != b.GetDays()) return Difference(W(a.GetDays()), W(b.GetDays()));
  return Difference(W(a.GetTimeOfDay()), W(b.GetTimeOfDay()));
}
int KvCompareTimeSpan(const KvTimeSpan* a, const KvTimeSpan* b) { return KvCompareTimeSpan(*a, *b); }

// ---------------------------------------------------------------------------------------------
// KvTime

KvTime::KvTime(long pcTime) { *this = pcTime; }

KvTime& KvTime::operator=(long pcTime) {
  const u32 pc = static_cast<u32>(pcTime);
  m_lLev = 0;
  m_lJul = static_cast<i32>(KvPcTime2Julian(pc));
  m_lTod = static_cast<i32>(KvPcTime2Tod(pc));
  return *this;
}

KvTime::KvTime(long y, long m, long d, long h, long min, long s, long ms)
    : m_lLev(0), m_lJul(Date2Julian(W(y), W(m), W(d))), m_lTod(Time2Tod(W(h), W(min), W(s), W(ms))) {}

KvTime::KvTime(long jul, long tod) : m_lLev(0), m_lJul(W(jul)), m_lTod(W(tod)) {}

KvTime::KvTime(const _SYSTEMTIME& st)
    : KvTime(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds) {}

KvTime::KvTime(const _FILETIME& ft) {
  const std::uint64_t count = (std::uint64_t{ft.dwHighDateTime} << 32) | ft.dwLowDateTime;
  if (count >> 63 != 0) return;  // beyond the system's conversion: stays null
  constexpr std::uint64_t kPerDay = std::uint64_t{864000000000};  // 100 ns intervals in a day
  m_lLev = 0;
  m_lJul = kJulianOf1601 + static_cast<i32>(count / kPerDay);
  m_lTod = static_cast<i32>(count % kPerDay / 10000);
}

namespace {
KvTime FromPlatform(const kvd::platform::LocalTime& t) {
  return KvTime(t.year, t.month, t.day, t.hour, t.minute, t.second, t.millis);
}
}  // namespace

KvTime KvTime::GetCurrentUtcTime() { return FromPlatform(kvd::platform::NowUtc()); }

KvTime KvTime::GetCurrentLocalTime() { return FromPlatform(kvd::platform::NowLocal()); }

KvTime& KvTime::Normalize() {
  if (m_lTod >= kMsPerDay) {
    m_lJul = Add(m_lJul, m_lTod / kMsPerDay);
    m_lTod %= kMsPerDay;
  } else if (m_lTod < 0) {
    const i32 borrow = static_cast<i32>((-static_cast<i64>(m_lTod) + kMsPerDay - 1) / kMsPerDay);
    m_lJul = Sub(m_lJul, borrow);
    m_lTod = static_cast<i32>(m_lTod + static_cast<i64>(borrow) * kMsPerDay);
  }
  return *this;
}

long KvTime::GetPcTime() const { return static_cast<i32>(Julian2PcTime(m_lJul, m_lTod)); }

long KvTime::GetYear() const {
  i32 y, m, d;
  Julian2Date(m_lJul, y, m, d);
  return y;
}

long KvTime::GetMonth() const {
  i32 y, m, d;
  Julian2Date(m_lJul, y, m, d);
  return m;
}

long KvTime::GetDayOfMonth() const {
  i32 y, m, d;
  Julian2Date(m_lJul, y, m, d);
  return d;
}

long KvTime::GetDayOfYear() const { return KvJulian2DayOfYear(m_lJul); }

long KvTime::GetDayOfWeek() const { return KvJulian2DayOfWeek(m_lJul); }

bool KvTime::IsLeapYear() const { return IsLeap(static_cast<i32>(GetYear())); }

void KvTime::FillSystemTime(_SYSTEMTIME& st) const {
  i32 y, m, d;
  Julian2Date(m_lJul, y, m, d);
  st.wYear = static_cast<std::uint16_t>(y);
  st.wMonth = static_cast<std::uint16_t>(m);
  st.wDayOfWeek = 0;
  st.wDay = static_cast<std::uint16_t>(d);
  st.wHour = static_cast<std::uint16_t>(GetHour());
  st.wMinute = static_cast<std::uint16_t>(GetMinute());
  st.wSecond = static_cast<std::uint16_t>(GetSecond());
  st.wMilliseconds = static_cast<std::uint16_t>(GetMillisecond());
}

bool KvTime::IsValid() const {
  return m_lJul >= KVTIME_MIN_JULIAN && m_lJul <= KVTIME_MAX_JULIAN && m_lTod >= 0 && m_lTod < kMsPerDay;
}

// --- Sortable form ------------------------------------------------------------------------------

namespace {
constexpr int kSortableLen = 17;           // YYYYMMDDhhmmssttt
constexpr int kSortableLevelLen = 8 + 17;  // the level's 8 hexadecimal digits in front

// Writes the sortable form of a valid `t` (kSortableLen or kSortableLevelLen characters, no NUL).
void PutSortable(const KvTime& t, char* p, bool level) {
  if (level) {
    static constexpr char kHex[] = "0123456789abcdef";
    u32 lev = static_cast<u32>(t.GetTimelevel());
    for (int i = 7; i >= 0; --i, lev >>= 4) p[i] = kHex[lev & 15];
    p += 8;
  }
  i32 y, m, d;
  Julian2Date(static_cast<i32>(t.GetJulianDate()), y, m, d);
  const u32 tod = static_cast<u32>(t.GetTimeOfDay());
  PutDigits(p, static_cast<u32>(y), 4);
  PutDigits(p + 4, static_cast<u32>(m), 2);
  PutDigits(p + 6, static_cast<u32>(d), 2);
  PutDigits(p + 8, tod / 3600000, 2);
  PutDigits(p + 10, tod / 60000 % 60, 2);
  PutDigits(p + 12, tod / 1000 % 60, 2);
  PutDigits(p + 14, tod % 1000, 3);
}

// The same for any time: one that is not valid gives asterisks, the level's places too.
void PutSortableWhole(const KvTime& t, char* p, bool level) {
  if (!t.IsValid()) {
    std::memset(p, '*', level ? kSortableLevelLen : kSortableLen);
    return;
  }
  PutSortable(t, p, level);
}
}  // namespace

KvString KvTime::AsSortableString(bool fTimelevel) const {
  char buf[kSortableLevelLen];
  PutSortableWhole(*this, buf, fTimelevel);
  return MakeText(buf, fTimelevel ? kSortableLevelLen : kSortableLen);
}

void KvTime::AsSortableString(char* buffer, unsigned int bufferLen, bool fTimelevel) const {
  const unsigned need = (fTimelevel ? kSortableLevelLen : kSortableLen) + 1;
  if (bufferLen < need) {
    if (fTimelevel)
      KvAssertFail("stBufLen >= 26", kSource, kLineBufferWithLevel);
    else
      KvAssertFail("stBufLen >= 18", kSource, kLineBuffer);
    if (buffer == nullptr || bufferLen == 0) return;
    char whole[kSortableLevelLen + 1];
    PutSortableWhole(*this, whole, fTimelevel);
    std::memcpy(buffer, whole, bufferLen - 1);  // what fits, terminated
    buffer[bufferLen - 1] = '\0';
    return;
  }
  PutSortableWhole(*this, buffer, fTimelevel);
  buffer[need - 1] = '\0';
}

bool KvTime::IsValidSortableString(const char* text, bool fTimelevel) {
  if (text == nullptr) return false;
  const std::size_t want = fTimelevel ? kSortableLevelLen : kSortableLen;
  std::size_t i = 0;
  if (fTimelevel)
    for (; i < 8; ++i)
      if (HexValue(text[i]) < 0) return false;  // also stops at the NUL
  for (; i < want; ++i)
    if (!IsDigit(text[i])) return false;
  return text[want] == '\0';
}

KvTime& KvTime::AssignSortableString(const char* text, bool fTimelevel) {
  if (!IsValidSortableString(text, fTimelevel)) {
    SetNull();
    return *this;
  }
  i32 level = 0;
  if (fTimelevel) {
    u32 lev = 0;
    for (int i = 0; i < 8; ++i) lev = lev << 4 | static_cast<u32>(HexValue(text[i]));
    level = static_cast<i32>(lev);
    text += 8;
  }
  m_lLev = level;
  m_lJul = Date2Julian(ReadDigits(text, 4), ReadDigits(text + 4, 2), ReadDigits(text + 6, 2));
  m_lTod = Time2Tod(ReadDigits(text + 8, 2), ReadDigits(text + 10, 2), ReadDigits(text + 12, 2),
                    ReadDigits(text + 14, 3));
  return *this;
}

// --- Formats ------------------------------------------------------------------------------------

KvString KvTime::AsFormatedString(const char* format) const {
  if (IsNull() || format == nullptr || *format == '\0') return KvString();
  // Every token writes as many characters as it has, and every separator one: the text has the
  // format's length. Fields outside their range (a time that is not valid) give their last
  // digits without a sign, so that this holds for them too. The walk is WalkFormat's, written
  // out: this is the debug log's and the variant's hot path.
  char inner[128];
  std::string outer;
  char* out = inner;
  i32 y, m, d;
  Julian2Date(m_lJul, y, m, d);
  const u32 tod = Magnitude(m_lTod);
  const u32 year = Magnitude(y), month = Magnitude(m), day = Magnitude(d);
  const u32 hour = tod / 3600000, minute = tod / 60000 % 60, second = tod / 1000 % 60, milli = tod % 1000;
  const char* p = format;
  char* o = out;
  for (;;) {
    const char* q = p;
    while (!IsStop(*q)) ++q;
    const std::size_t n = static_cast<std::size_t>(q - p);
    if (o + n + 2 > out + sizeof inner && out == inner) {  // a long format: move to the heap
      outer.resize(std::strlen(format) + 1);
      std::memcpy(outer.data(), inner, static_cast<std::size_t>(o - inner));
      o = outer.data() + (o - inner);
      out = outer.data();
    }
    switch (TimeToken(n, n != 0 ? q[-1] : '\0')) {
      case Field::kYear:
        if (n == 4) Put2(o, year / 100), o += 2;
        Put2(o, year);
        o += 2;
        break;
      case Field::kMonth: Put2(o, month), o += 2; break;
      case Field::kDay: Put2(o, day), o += 2; break;
      case Field::kHour: Put2(o, hour), o += 2; break;
      case Field::kMinute: Put2(o, minute), o += 2; break;
      case Field::kSecond: Put2(o, second), o += 2; break;
      case Field::kThousandth:
        PutThousandth(o, static_cast<i32>(milli), n);
        o += n;
        break;
      default: return KvString();  // an empty token, or one of another length or letter
    }
    if (*q == '\0') break;
    *o++ = *q;  // the separator
    p = q + 1;
    if (*p == '\0') break;
    if (IsSeparator(*p)) return KvString();  // two in a row
  }
  return MakeText(out, static_cast<std::size_t>(o - out));
}

KvTime& KvTime::AssignFormatedString(const char* format, const char* text) {
  long y, m, d, h, min, s, ms;
  if (!KvParseFormatedString(format, text, y, m, d, h, min, s, ms)) {
    SetNull();
    return *this;
  }
  return *this = KvTime(y, m, d, h, min, s, ms);
}

KvString KvTime::AsLocalizedString() const {
  if (!IsValid()) return KvString();
  i32 y, m, d;
  Julian2Date(m_lJul, y, m, d);
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = m - 1;
  tm.tm_mday = d;
  tm.tm_hour = static_cast<int>(GetHour());
  tm.tm_min = static_cast<int>(GetMinute());
  tm.tm_sec = static_cast<int>(GetSecond());
  tm.tm_wday = static_cast<int>(GetDayOfWeek());
  tm.tm_yday = static_cast<int>(GetDayOfYear()) - 1;
  tm.tm_isdst = -1;
  // The long date (day name, day, month name, year) and the time without seconds, with the names
  // of the process's LC_TIME. %-d is the day without padding.
  char buf[1024];
  const std::size_t n = std::strftime(buf, sizeof buf, "%A, %-d %B %Y %H:%M", &tm);
  buf[n] = '\0';
  return KvString(buf);
}

KvTime& KvTime::operator+=(const KvTimeSpan& span) {
  m_lJul = Add(m_lJul, W(span.GetDays()));
  m_lTod = Add(m_lTod, W(span.GetTimeOfDay()));
  return Normalize();
}

KvTime& KvTime::operator-=(const KvTimeSpan& span) {
  m_lJul = Sub(m_lJul, W(span.GetDays()));
  m_lTod = Sub(m_lTod, W(span.GetTimeOfDay()));
  return Normalize();
}

KvTimeSpan operator-(const KvTime& a, const KvTime& b) {
  return KvTimeSpan(Sub(W(a.GetJulianDate()), W(b.GetJulianDate())), 0, 0, 0,
                    Sub(W(a.GetTimeOfDay()), W(b.GetTimeOfDay())));
}

KvTime operator+(const KvTime& t, const KvTimeSpan& span) {
  KvTime r(t);
  return r += span;
}

KvTime operator+(const KvTimeSpan& span, const KvTime& t) { return t + span; }

KvTime operator-(const KvTime& t, const KvTimeSpan& span) {
  KvTime r(t);
  return r -= span;
}

// ---------------------------------------------------------------------------------------------
// KvTimeSpan

KvTimeSpan::KvTimeSpan(long seconds) {
  const i32 s = W(seconds);
  m_lJul = s / kSecondsPerDay;
  m_lTod = s % kSecondsPerDay * 1000;
}

KvTimeSpan::KvTimeSpan(long days, long h, long min, long s, long ms)
    : m_lJul(W(days)), m_lTod(Time2Tod(W(h), W(min), W(s), W(ms))) {
  Normalize();
}

KvTimeSpan& KvTimeSpan::Normalize() {
  m_lJul = Add(m_lJul, m_lTod / kMsPerDay);
  m_lTod %= kMsPerDay;
  if (m_lJul > 0 && m_lTod < 0) {
    --m_lJul;
    m_lTod += kMsPerDay;
  } else if (m_lJul < 0 && m_lTod > 0) {
    ++m_lJul;
    m_lTod -= kMsPerDay;
  }
  return *this;
}

long KvTimeSpan::GetTotalSeconds() const { return Add(Mul(m_lJul, kSecondsPerDay), m_lTod / 1000); }
long KvTimeSpan::GetTotalHours() const { return Add(m_lTod / 3600000, Mul(m_lJul, 24)); }
long KvTimeSpan::GetTotalMinutes() const { return Add(m_lTod / 60000, Mul(m_lJul, 1440)); }
long KvTimeSpan::GetTotalMilliseconds() const { return Add(Mul(m_lJul, kMsPerDay), m_lTod); }

KvString KvTimeSpan::AsSortableString() const {
  if (IsNull()) return KvString();
  char buf[64];  // 24 for a normalised span; room for any 32-bit fields
  char* p = PutSigned(buf, m_lJul, 10);
  p = PutSigned(p, static_cast<i32>(GetHours()), 2);
  p = PutSigned(p, static_cast<i32>(GetMinutes()), 2);
  p = PutSigned(p, static_cast<i32>(GetSeconds()), 2);
  p = PutSigned(p, static_cast<i32>(GetMilliseconds()), 3);
  *p = '\0';
  return KvString(buf);
}

KvTimeSpan& KvTimeSpan::AssignSortableString(const char* text) {
  SetNull();
  if (text == nullptr || *text == '\0') return *this;
  static constexpr std::size_t kAt[6] = {0, 11, 14, 17, 20, 24};
  const std::size_t len = std::strlen(text);
  i32 v[5];
  for (int i = 0; i < 5; ++i) {
    const std::size_t from = kAt[i] < len ? kAt[i] : len;
    const std::size_t to = kAt[i + 1] < len ? kAt[i + 1] : len;
    v[i] = Strtol32(text + from, to - from);
  }
  return *this = KvTimeSpan(v[0], v[1], v[2], v[3], v[4]);
}

KvString KvTimeSpan::AsFormatedString(const char* format) const {
  if (IsNull() || format == nullptr) return KvString();
  const bool negative = m_lJul < 0 || m_lTod < 0;
  // The size of the span. A normalised span has both fields of one sign, so each field's size
  // is the field of the size.
  const u32 days = Magnitude(m_lJul), tod = Magnitude(m_lTod);
  // A DD token may write up to 10 digits: room for five times the format, and the sign.
  const std::size_t len = std::strlen(format);
  TextBuffer buf(5 * len + 2);
  char* p = buf.data();
  if (negative) *p++ = '-';
  const bool ok = WalkFormat(
      format, SpanToken,
      [&](Field f, std::size_t, std::size_t n) {
        switch (f) {
          case Field::kDay: p = PutAtLeast(p, days, 2); break;
          case Field::kHour: p = PutAtLeast(p, tod / 3600000, 2); break;
          case Field::kMinute: p = PutAtLeast(p, tod / 60000 % 60, 2); break;
          case Field::kSecond: p = PutAtLeast(p, tod / 1000 % 60, 2); break;
          default:
            PutThousandth(p, static_cast<i32>(tod % 1000), n);
            p += n;
            break;
        }
      },
      [&](char sep) { *p++ = sep; });
  if (!ok) return KvString();
  *p = '\0';
  return KvString(buf.data());
}

KvTimeSpan& KvTimeSpan::AssignFormatedString(const char* format, const char* text) {
  SetNull();
  if (format == nullptr || text == nullptr || std::strlen(format) != std::strlen(text)) return *this;
  i32 days = 0, h = 0, min = 0, s = 0, ms = 0;
  bool digits_ok = true;
  const bool ok = WalkFormat(
      format, SpanToken,
      [&](Field f, std::size_t at, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i)
          if (!IsDigit(text[at + i])) digits_ok = false;
        if (!digits_ok) return;
        const i32 v = ReadDigits(text + at, static_cast<int>(n));
        switch (f) {
          case Field::kDay: days = v; break;
          case Field::kHour: h = v; break;
          case Field::kMinute: min = v; break;
          case Field::kSecond: s = v; break;
          default: ms = v; break;
        }
      },
      [](char) {});
  if (ok && digits_ok) *this = KvTimeSpan(days, h, min, s, ms);
  return *this;
}

KvTimeSpan& KvTimeSpan::operator+=(const KvTimeSpan& other) {
  m_lJul = Add(m_lJul, other.m_lJul);
  m_lTod = Add(m_lTod, other.m_lTod);
  return Normalize();
}

KvTimeSpan& KvTimeSpan::operator-=(const KvTimeSpan& other) {
  m_lJul = Sub(m_lJul, other.m_lJul);
  m_lTod = Sub(m_lTod, other.m_lTod);
  return Normalize();
}

KvTimeSpan operator+(const KvTimeSpan& a, const KvTimeSpan& b) {
  KvTimeSpan r(a);
  return r += b;
}

KvTimeSpan operator-(const KvTimeSpan& a, const KvTimeSpan& b) {
  KvTimeSpan r(a);
  return r -= b;
}
