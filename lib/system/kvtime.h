// Points in time and lengths of time: KvTime, KvTimeSpan and the free calendar functions.
//
// Part of the system layer of the class library (lib/system/), beside the file and process
// utilities: a time reaches the rest of the suite mostly as text (the variant, the store's table
// fields, the debug log), and the clocks it reads come through platform/.
//
// KvTime is a point with millisecond resolution on the proleptic Gregorian calendar, valid from
// 1 January of the year 1 to 31 December 9999. It is three numbers:
//   level     ranks above the date (times compare level first); -1 marks the null time, and any
//             negative level reads as null; every constructor that sets a time sets 0;
//   Julian    the day as a chronological Julian day number (2451545 is 1 January 2000);
//   tod       the time of day in milliseconds, 0 .. 86399999.
// A KvTime has no time zone: it means whatever clock it was taken from. GetCurrentUtcTime and
// GetCurrentLocalTime differ only in the clock; the local one follows TZ and the system's zone
// files, as the platform reads them. The library reads clocks only and never sets one.
//
// KvTimeSpan is a signed length: whole days and a rest in milliseconds, normalised so that the
// rest is below one day in size and has the sign of the days when the days are not 0.
//
// PC time is seconds since 1 January 1970 00:00:00, an unsigned 32-bit count that serves the
// years 1970 to 2037: a date before 1970 gives 0, and a date from 2038 on starts from 0x7FFFFFFF,
// so that read as a signed number it is negative.
//
// Widths. Every stored quantity is 32-bit: the three fields of a time, the two of a span, PC time.
// The interface takes and gives `long`, as callers pass them; an argument is taken by its low
// 32 bits, and the arithmetic on these quantities wraps at 32 bits where it overflows (a span of
// 25 days or more in GetTotalMilliseconds, a PC time from 2038 on, a sum of huge hours).
// Results never depend on the width of `long`. PC times are std::uint32_t throughout.
//
// Texts. Parsers take `const char*`, so a KvString passes as it is and a literal needs no string
// to be built; null reads as the empty text. Results that are text come as a new KvString (from
// the arena), or into a caller's buffer in the one form the debug log uses.
//
// Failures: nothing here throws (but for the arena under a returned KvString). Bad text gives the
// null time or a zero span, a bad format the empty text. Two misuses are reported as broken
// invariants (KvAssertFail, source "KvTime") and the call goes on: a month outside 1..12 in
// KvDaysInMonth, and a buffer too short for the sortable form.
//
// Threads: value types without shared state; any thread may use its own objects.
#pragma once

#include <cstdint>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvstring.h"
#include "lib/kv_export.h"

class KvTimeSpan;

// The broken-down time record of the platform the interface comes from: 16-bit fields in this
// order. wDayOfWeek is 0 for Sunday.
struct _SYSTEMTIME {
  std::uint16_t wYear;
  std::uint16_t wMonth;         // 1 .. 12
  std::uint16_t wDayOfWeek;     // 0 Sunday .. 6 Saturday
  std::uint16_t wDay;           // 1 .. 31
  std::uint16_t wHour;          // 0 .. 23
  std::uint16_t wMinute;        // 0 .. 59
  std::uint16_t wSecond;        // 0 .. 59
  std::uint16_t wMilliseconds;  // 0 .. 999
};
static_assert(sizeof(_SYSTEMTIME) == 16, "_SYSTEMTIME is eight 16-bit words");

// A count of 100-nanosecond intervals since 1 January 1601 00:00:00, in two 32-bit halves.
struct _FILETIME {
  std::uint32_t dwLowDateTime;
  std::uint32_t dwHighDateTime;
};
static_assert(sizeof(_FILETIME) == 8, "_FILETIME is two 32-bit words");

// A calendar date.
struct _KV_DATE {
  int iYear;
  int iMonth;  // 1 .. 12
  int iDay;    // 1 .. 31
};

// The range of valid times, as Julian days: 1 January 1 and 31 December 9999.
constexpr long KVTIME_MIN_JULIAN = 1721426;
constexpr long KVTIME_MAX_JULIAN = 5373484;
constexpr long KVTIME_MS_PER_DAY = 86400000;

// ---------------------------------------------------------------------------------------------
class KVCLASS_API KvTime {
  KVGRAN_DECLARE_NEW(KvTime)

 public:
  // The null time: level -1, day 0, tod 0.
  KvTime() = default;
  // From PC time (taken as unsigned 32-bit), level 0; the tod is whole seconds. Explicit, so
  // that a number never passes for a time by accident; operator= takes one on purpose.
  explicit KvTime(long pcTime);
  KvTime& operator=(long pcTime);
  // Level 0; the day by KvDate2Julian and the tod by KvTime2Tod. Nothing is checked or
  // normalised: 30 February is the day after 29 February, a tod may lie outside the day.
  KvTime(long y, long m, long d, long h, long min, long s, long ms);
  // Level 0, the fields as given.
  KvTime(long jul, long tod);
  // Level 0; the date and time of the record (wDayOfWeek is not read).
  explicit KvTime(const _SYSTEMTIME& st);
  // Level 0; the moment the count names. A count with its top bit set names no date the
  // system can convert, and gives the null time.
  explicit KvTime(const _FILETIME& ft);

  // This moment by the UTC clock and by the local clock.
  static KvTime GetCurrentUtcTime();
  static KvTime GetCurrentLocalTime();

  // Brings the tod into 0 .. 86399999, moving whole days into the Julian day. The level stays.
  KvTime& Normalize();

  void SetNull() { *this = KvTime(); }
  bool IsNull() const { return m_lLev < 0; }
  bool IsNotNull() const { return !IsNull(); }
  // The level is the application's: the class stores, compares and prints it, nothing else.
  void SetTimelevel(long lev) { m_lLev = static_cast<std::int32_t>(lev); }
  long GetTimelevel() const { return m_lLev; }

  // Seconds since 1970 of this time, as KvJulian2PcTime gives them, read as signed 32 bits:
  // 0 before 1970, negative beyond the first second of 2038.
  long GetPcTime() const;

  // The calendar of the Julian day and the clock of the tod. Of the null time and of other times
  // outside the valid range they answer what the same arithmetic gives (day 0 lies in 4714 BC);
  // nothing more is promised of them.
  long GetYear() const;
  long GetMonth() const;
  long GetDayOfMonth() const;
  long GetDayOfYear() const;    // 1 for 1 January
  long GetHour() const { return m_lTod / 3600000; }
  long GetMinute() const { return m_lTod / 60000 % 60; }
  long GetSecond() const { return m_lTod / 1000 % 60; }
  long GetMillisecond() const { return m_lTod % 1000; }
  long GetDayOfWeek() const;    // 0 Sunday .. 6 Saturday
  long GetJulianDate() const { return m_lJul; }
  long GetTimeOfDay() const { return m_lTod; }
  bool IsLeapYear() const;

  // Every member of the record from this time; wDayOfWeek is 0. Each value is cut to 16 bits.
  void FillSystemTime(_SYSTEMTIME& st) const;

  // The Julian day within the valid range and the tod within the day; the level plays no part.
  bool IsValid() const;

  // The sortable form: "YYYYMMDDhhmmssttt" (17 characters), with fTimelevel the level in front
  // as 8 lower-case hexadecimal digits (25 characters). A time that is not valid, the null time
  // among them, gives as many asterisks.
  KvString AsSortableString(bool fTimelevel) const;
  // The same into `buffer`, which needs 18 bytes (26 with the level) and allocates nothing: the
  // form the debug log writes. A shorter buffer is reported and gets what fits, terminated.
  void AsSortableString(char* buffer, unsigned int bufferLen, bool fTimelevel) const;
  // Reads the sortable form. The null time for an empty text, a length other than 17 (25 with
  // fTimelevel), a character that is no decimal digit, or with fTimelevel a non-hexadecimal one
  // among the first 8. Otherwise the level is the 8 digits (or 0 without them) and the date and
  // time are the digits as they stand: a month 13 is taken without complaint.
  KvTime& AssignSortableString(const char* text, bool fTimelevel);
  // Whether `text` passes the length and character test above; the empty text does not.
  static bool IsValidSortableString(const char* text, bool fTimelevel);

  // The time written by a format (see KvParseFormatedString for the letters). Tokens are runs of
  // characters between blanks and punctuation; a token must be YYYY, YY, MM, DD, hh, mm, ss, or
  // one to three t (judged by its length and its last letter). Exactly one separator stands
  // between two tokens and is copied; the format may end with one. Any other format gives the
  // empty text, and so does the null time. YY is the last two digits of the year, t .. ttt the
  // first digits of the three-digit millisecond. "DD.MM.YYYY hh:mm:ss.ttt" gives
  // "21.02.2006 14:05:09.007". A time that is not valid but not null writes the last digits of
  // its fields (a tod of 25 hours as 25), so that the text always has the format's length.
  KvString AsFormatedString(const char* format) const;
  // Reads `text` by KvParseFormatedString: level 0, the date and time read, not checked for
  // existence; the null time when the text does not fit the format.
  KvTime& AssignFormatedString(const char* format, const char* text);
  // The date in the long form and the time without seconds, in the process's LC_TIME locale:
  // "Tuesday, 21 February 2006 14:05" in the C locale. A time that is not valid gives the empty
  // text (there is no calendar to name).
  KvString AsLocalizedString() const;

  // Adds (subtracts) the span's days and milliseconds, then normalises; the level stays.
  KvTime& operator+=(const KvTimeSpan& span);
  KvTime& operator-=(const KvTimeSpan& span);

 private:

  std::int32_t m_lLev = -1;  // level; negative is null
  std::int32_t m_lJul = 0;   // chronological Julian day number
  std::int32_t m_lTod = 0;   // milliseconds since midnight, 0 .. 86399999 when normalised
};

// ---------------------------------------------------------------------------------------------
class KVCLASS_API KvTimeSpan {
  KVGRAN_DECLARE_NEW(KvTimeSpan)

 public:
  // Zero.
  KvTimeSpan() = default;
  // Days seconds / 86400, tod (seconds % 86400) * 1000: both carry the sign of `seconds`.
  explicit KvTimeSpan(long seconds);
  // ((h * 60 + min) * 60 + s) * 1000 + ms (in 32 bits) and the days, normalised.
  KvTimeSpan(long days, long h, long min, long s, long ms);

  // Moves whole days out of the tod, then gives the tod the sign of the days by borrowing or
  // returning one day.
  KvTimeSpan& Normalize();
  void SetNull() { m_lJul = m_lTod = 0; }
  bool IsNull() const { return m_lJul == 0 && m_lTod == 0; }
  bool IsNotNull() const { return !IsNull(); }
  // Neither field negative: zero is positive.
  bool IsPositive() const { return m_lJul >= 0 && m_lTod >= 0; }

  // days * 86400 + tod / 1000, wrapping at 32 bits.
  long GetPcTime() const { return GetTotalSeconds(); }
  long GetTotalSeconds() const;
  long GetDays() const { return m_lJul; }
  long GetTimeOfDay() const { return m_lTod; }
  long GetTotalHours() const;         // tod / 3600000 + days * 24
  long GetTotalMinutes() const;       // tod / 60000 + days * 1440
  long GetTotalMilliseconds() const;  // days * 86400000 + tod: wraps beyond about 24 days
  long GetHours() const { return m_lTod / 3600000; }
  long GetMinutes() const { return m_lTod / 60000 % 60; }
  long GetSeconds() const { return m_lTod / 1000 % 60; }
  long GetMilliseconds() const { return m_lTod % 1000; }

  // The sortable form: the days as "%+10.10d", then hours, minutes and seconds as "%+2.2d" and
  // the milliseconds as "%+3.3d", each with its own sign, 24 characters; the zero span gives
  // the empty text.
  KvString AsSortableString() const;
  // Reads the fields at 0 (11 characters), 11 (3), 14 (3), 17 (3) and 20 (4) as signed decimal
  // numbers (as many digits as stand there, clamped to 32 bits) and normalises; a field beyond
  // the end of a short text reads 0. The empty text gives zero.
  KvTimeSpan& AssignSortableString(const char* text);

  // The span written by a format of the tokens DD, hh, mm, ss and one to three t, with the token
  // and separator rules of KvTime::AsFormatedString. The zero span and a bad format give the
  // empty text. A negative span is written as its size behind one '-', and days of 100 or more
  // with all their digits: such texts are longer than their format and do not read back.
  KvString AsFormatedString(const char* format) const;
  // Reads a text of the format's length, each token's digits from the same place: the span of
  // those days, hours, minutes, seconds and milliseconds (t digits are milliseconds as they
  // stand). Zero on any fault: another length, a bad format, a non-digit under a token.
  KvTimeSpan& AssignFormatedString(const char* format, const char* text);

  // Field by field, then normalised.
  KvTimeSpan& operator+=(const KvTimeSpan& other);
  KvTimeSpan& operator-=(const KvTimeSpan& other);

 private:

  std::int32_t m_lJul = 0;  // whole days
  std::int32_t m_lTod = 0;  // the rest in milliseconds
};

// ---------------------------------------------------------------------------------------------
// Order. Each answers the difference of the first fields that differ (a > b: positive), in the
// order level, Julian day, tod (days, tod for spans); a difference beyond 32 bits is clamped to
// INT_MAX or -INT_MAX, so the sign is always right. A null time sorts before every other time,
// and a higher level after every time of a lower one, whatever the dates.
KVCLASS_API int KvCompareTime(const KvTime& a, const KvTime& b);
KVCLASS_API int KvCompareTime(const KvTime* a, const KvTime* b);
// The same with the tod counted in whole seconds.
KVCLASS_API int KvCompareTimeIgnoreMilliseconds(const KvTime& a, const KvTime& b);
KVCLASS_API int KvCompareTimeIgnoreMilliseconds(const KvTime* a, const KvTime* b);
KVCLASS_API int KvCompareTimeSpan(const KvTimeSpan& a, const KvTimeSpan& b);
KVCLASS_API int KvCompareTimeSpan(const KvTimeSpan* a, const KvTimeSpan* b);

inline bool operator==(const KvTime& a, const KvTime& b) { return KvCompareTime(a, b) == 0; }
inline bool operator!=(const KvTime& a, const KvTime& b) { return KvCompareTime(a, b) != 0; }
inline bool operator<(const KvTime& a, const KvTime& b) { return KvCompareTime(a, b) < 0; }
inline bool operator>(const KvTime& a, const KvTime& b) { return KvCompareTime(a, b) > 0; }
inline bool operator<=(const KvTime& a, const KvTime& b) { return KvCompareTime(a, b) <= 0; }
inline bool operator>=(const KvTime& a, const KvTime& b) { return KvCompareTime(a, b) >= 0; }
inline bool operator==(const KvTimeSpan& a, const KvTimeSpan& b) { return KvCompareTimeSpan(a, b) == 0; }
inline bool operator!=(const KvTimeSpan& a, const KvTimeSpan& b) { return KvCompareTimeSpan(a, b) != 0; }
inline bool operator<(const KvTimeSpan& a, const KvTimeSpan& b) { return KvCompareTimeSpan(a, b) < 0; }
inline bool operator>(const KvTimeSpan& a, const KvTimeSpan& b) { return KvCompareTimeSpan(a, b) > 0; }
inline bool operator<=(const KvTimeSpan& a, const KvTimeSpan& b) { return KvCompareTimeSpan(a, b) <= 0; }
inline bool operator>=(const KvTimeSpan& a, const KvTimeSpan& b) { return KvCompareTimeSpan(a, b) >= 0; }

// Arithmetic. A time plus or minus a span keeps the time's level; a time minus a time ignores
// both levels and is normalised as a span.
KVCLASS_API KvTimeSpan operator-(const KvTime& a, const KvTime& b);
KVCLASS_API KvTime operator+(const KvTime& t, const KvTimeSpan& span);
KVCLASS_API KvTime operator+(const KvTimeSpan& span, const KvTime& t);
KVCLASS_API KvTime operator-(const KvTime& t, const KvTimeSpan& span);
KVCLASS_API KvTimeSpan operator+(const KvTimeSpan& a, const KvTimeSpan& b);
KVCLASS_API KvTimeSpan operator-(const KvTimeSpan& a, const KvTimeSpan& b);

// ---------------------------------------------------------------------------------------------
// The calendar. Dates are proleptic Gregorian; months run 1 .. 12, days of the year from 1 for
// 1 January, days of the week from 0 for Sunday. Out pointers may be null. Arguments outside the
// calendar are not checked (see KvIsValidTime): the arithmetic runs on them all the same.

// Julian day of a date, and the date of a Julian day (inverse of each other on valid dates).
KVCLASS_API long KvDate2Julian(long y, long m, long d);
KVCLASS_API void KvJulian2Date(long jul, long* y, long* m, long* d);
// ((h * 60 + min) * 60 + s) * 1000 + ms, and back.
KVCLASS_API long KvTime2Tod(long h, long min, long s, long ms);
KVCLASS_API void KvTod2Time(long tod, long* h, long* min, long* s, long* ms);

// PC time (see the top of this file).
KVCLASS_API void KvPcTime2DateAndTime(std::uint32_t pc, long& y, long& m, long& d, long& h, long& min, long& s);
// 0 for a year before 1970; else Greg2ul of the date plus the seconds of the time.
KVCLASS_API void KvDateAndTime2PcTime(std::uint32_t& pc, long y, long m, long d, long h, long min, long s);
KVCLASS_API long KvPcTime2Julian(std::uint32_t pc);
KVCLASS_API long KvPcTime2Tod(std::uint32_t pc);  // (pc % 86400) * 1000
// The PC time of a Julian day and tod; the milliseconds are dropped.
KVCLASS_API std::uint32_t KvJulian2PcTime(long jul, long tod);
// The PC time of midnight of a date: 0 for a year before 1970, 0x7FFFFFFF for 2038 and later.
KVCLASS_API std::uint32_t Greg2ul(long y, long m, long d);
// The same of three bytes year, month, day, with a two-digit year: below 90 from 2000, others
// from 1900.
KVCLASS_API std::uint32_t Greg2ul(const unsigned char ymd[3]);
// The date of a PC time.
KVCLASS_API void AutCalcGreg(_KV_DATE* date, std::uint32_t pc);

// Divisible by 4 and not by 100, or divisible by 400.
KVCLASS_API bool KvIsLeapYear(long y);
// Days of a month. A month outside 1 .. 12 is reported and has 0 days.
KVCLASS_API long KvDaysInMonth(long y, long m);
KVCLASS_API long KvDate2DayOfYear(long y, long m, long d);
KVCLASS_API long KvJulian2DayOfYear(long jul);
KVCLASS_API long KvDayOfYear2Month(long y, long doy);
KVCLASS_API long KvDayOfYear2DayOfMonth(long y, long doy);
KVCLASS_API long KvDayOfYear2DayOfWeek(long y, long doy);
KVCLASS_API long KvJulian2DayOfWeek(long jul);
// The day of the year of Easter Sunday (Gregorian computus).
KVCLASS_API long KvYear2EasterSunday(long y);
// Whether the date exists (converted to a Julian day and back unchanged) and the time lies in
// 0..23, 0..59, 0..59, 0..999.
KVCLASS_API bool KvIsValidTime(long y, long m, long d, long h, long min, long s, long ms);

// Reads `text` by `format`, loosely. The format's letters are Y (year), M (month), D (day),
// h (hour), m (minute), s (second), t (thousandth); a run of one letter is a token, which must be
// DD, MM, hh, mm, ss, YY or YYYY, or one to three t. The digits at the text's place give the
// value, as many as stand there, or no more than the run's length when another token follows at
// once (so "YYYYMMDD" reads eight digits). Every character of the format that is no token letter
// skips one character of the text, whatever it is. A YY year below 90 is 2000 plus it, others
// 1900 plus it; the value of t is the number read (the digit 5 is 5 ms). True when format or text
// is used up; false for an empty text, a bad run, or a token with no digit under it. All seven
// values are 0 first; digits beyond 32 bits wrap.
KVCLASS_API bool KvParseFormatedString(const char* format, const char* text, long& y, long& m, long& d, long& h,
                                       long& min, long& s, long& ms);
