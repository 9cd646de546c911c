// KvTime, KvTimeSpan and the calendar functions: every day of the years 1 to 9999 against
// std::chrono's civil calendar, PC time against the seconds std::chrono counts, the sortable and
// formatted texts with their edges and round trips, arithmetic against a count of milliseconds,
// and the clocks with TZ pinned.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

#include "lib/foundation/kvfail.h"
#include "lib/system/kvtime.h"

namespace {

using namespace std::chrono;

// The chronological Julian day of 1 January 1970, where std::chrono counts its days from.
constexpr long kJulian1970 = 2440588;

long JulianOf(const sys_days& day) { return static_cast<long>(day.time_since_epoch().count()) + kJulian1970; }

std::string LastDebugLine() {
  char line[256];
  return KvDebugLastLine(0, line, sizeof line) ? line : "";
}

// A time as one count of milliseconds since Julian day 0: the model of the arithmetic.
std::int64_t Millis(const KvTime& t) {
  return static_cast<std::int64_t>(t.GetJulianDate()) * 86400000 + t.GetTimeOfDay();
}
KvTime FromMillis(std::int64_t ms) {
  std::int64_t jul = ms / 86400000, tod = ms % 86400000;
  if (tod < 0) {
    tod += 86400000;
    --jul;
  }
  return KvTime(static_cast<long>(jul), static_cast<long>(tod));
}

// A random valid time.
KvTime RandomTime(std::mt19937& rng) {
  std::uniform_int_distribution<long> jul(KVTIME_MIN_JULIAN, KVTIME_MAX_JULIAN), tod(0, 86399999);
  return KvTime(jul(rng), tod(rng));
}

// ---------------------------------------------------------------------------------------------
// The calendar

TEST(KvTimeCalendar, EveryDayOfTheYears1To9999AgreesWithStdChrono) {
  const sys_days first{year{1} / January / 1}, last{year{9999} / December / 31};
  EXPECT_EQ(JulianOf(first), KVTIME_MIN_JULIAN);
  EXPECT_EQ(JulianOf(last), KVTIME_MAX_JULIAN);
  EXPECT_EQ(JulianOf(sys_days{year{2000} / January / 1}), 2451545);

  long failures = 0;
  sys_days new_year = first;
  for (sys_days day = first; day <= last && failures < 10; day += days{1}) {
    const year_month_day ymd{day};
    const long y = static_cast<int>(ymd.year()), m = static_cast<unsigned>(ymd.month()),
               d = static_cast<unsigned>(ymd.day());
    if (m == 1 && d == 1) new_year = day;
    const long jul = JulianOf(day);
    const long doy = static_cast<long>((day - new_year).count()) + 1;
    const long wday = static_cast<long>(weekday{day}.c_encoding());

    long yy = -1, mm = -1, dd = -1;
    KvJulian2Date(jul, &yy, &mm, &dd);
    const bool ok = KvDate2Julian(y, m, d) == jul && yy == y && mm == m && dd == d &&
                    KvJulian2DayOfWeek(jul) == wday && KvDayOfYear2DayOfWeek(y, doy) == wday &&
                    KvJulian2DayOfYear(jul) == doy && KvDate2DayOfYear(y, m, d) == doy &&
                    KvDayOfYear2Month(y, doy) == m && KvDayOfYear2DayOfMonth(y, doy) == d &&
                    KvIsValidTime(y, m, d, 23, 59, 59, 999);
    if (!ok) {
      ++failures;
      ADD_FAILURE() << "day " << y << "-" << m << "-" << d << " (Julian " << jul << "): date " << yy << "-" << mm
                    << "-" << dd << ", week day " << KvJulian2DayOfWeek(jul) << " / "
                    << KvDayOfYear2DayOfWeek(y, doy) << " want " << wday << ", day of year "
                    << KvJulian2DayOfYear(jul) << " want " << doy;
    }
  }
  EXPECT_EQ(failures, 0);
}

TEST(KvTimeCalendar, YearsMonthsAndDatesThatDoNotExist) {
  for (int y = 1; y <= 9999; ++y) {
    const bool leap = year{y}.is_leap();
    ASSERT_EQ(KvIsLeapYear(y), leap) << y;
    for (unsigned m = 1; m <= 12; ++m) {
      const unsigned last = static_cast<unsigned>(year_month_day_last{year{y} / month{m} / std::chrono::last}.day());
      ASSERT_EQ(KvDaysInMonth(y, m), static_cast<long>(last)) << y << "-" << m;
      ASSERT_FALSE(KvIsValidTime(y, m, last + 1, 0, 0, 0, 0)) << y << "-" << m << "-" << last + 1;
      ASSERT_FALSE(KvIsValidTime(y, m, 0, 0, 0, 0, 0));
    }
    ASSERT_FALSE(KvIsValidTime(y, 0, 1, 0, 0, 0, 0));
    ASSERT_FALSE(KvIsValidTime(y, 13, 1, 0, 0, 0, 0));
  }
  EXPECT_EQ(KvDate2DayOfYear(2000, 3, 1), 61);
  EXPECT_EQ(KvDate2DayOfYear(1900, 3, 1), 60);  // 1900 is no leap year

  // Each field of the clock at both ends of its range.
  EXPECT_TRUE(KvIsValidTime(2006, 2, 21, 0, 0, 0, 0));
  EXPECT_FALSE(KvIsValidTime(2006, 2, 21, 24, 0, 0, 0));
  EXPECT_FALSE(KvIsValidTime(2006, 2, 21, -1, 0, 0, 0));
  EXPECT_FALSE(KvIsValidTime(2006, 2, 21, 0, 60, 0, 0));
  EXPECT_FALSE(KvIsValidTime(2006, 2, 21, 0, 0, 60, 0));
  EXPECT_FALSE(KvIsValidTime(2006, 2, 21, 0, 0, 0, 1000));
  EXPECT_FALSE(KvIsValidTime(2006, 2, 21, 0, 0, 0, -1));

  // A month outside the year is reported with its fixed line and has no days.
  EXPECT_EQ(KvDaysInMonth(2006, 13), 0);
  EXPECT_EQ(LastDebugLine(), "lMonth >= 1 && lMonth <= 12");
  EXPECT_EQ(KvDaysInMonth(2006, 0), 0);
}

// Easter Sunday by the anonymous Gregorian algorithm, worked out as a date in March or April.
long EasterDayOfYear(int y) {
  const int a = y % 19, b = y / 100, c = y % 100, d = b / 4, e = b % 4, f = (b + 8) / 25, g = (b - f + 1) / 3;
  const int h = (19 * a + b - d - g + 15) % 30, i = c / 4, k = c % 4, l = (32 + 2 * e + 2 * i - h - k) % 7;
  const int m = (a + 11 * h + 22 * l) / 451;
  const unsigned month = static_cast<unsigned>((h + l - 7 * m + 114) / 31);
  const unsigned day = static_cast<unsigned>((h + l - 7 * m + 114) % 31 + 1);
  return static_cast<long>((sys_days{year{y} / std::chrono::month{month} / day} - sys_days{year{y} / January / 1}).count()) + 1;
}

TEST(KvTimeCalendar, EasterSundayAgreesWithAnIndependentComputus) {
  EXPECT_EQ(KvYear2EasterSunday(2006), 106);  // 16 April
  for (int y = 1583; y <= 9999; ++y) ASSERT_EQ(KvYear2EasterSunday(y), EasterDayOfYear(y)) << y;
}

TEST(KvTimeCalendar, TimeOfDayAndItsParts) {
  EXPECT_EQ(KvTime2Tod(14, 5, 9, 7), ((14 * 60 + 5) * 60 + 9) * 1000 + 7);
  long h = -1, m = -1, s = -1, ms = -1;
  KvTod2Time(86399999, &h, &m, &s, &ms);
  EXPECT_EQ(h, 23);
  EXPECT_EQ(m, 59);
  EXPECT_EQ(s, 59);
  EXPECT_EQ(ms, 999);
  KvTod2Time(50706007, nullptr, &m, nullptr, nullptr);  // every out pointer may be null
  EXPECT_EQ(m, 5);
  KvJulian2Date(2451545, nullptr, nullptr, nullptr);
}

// ---------------------------------------------------------------------------------------------
// PC time

TEST(KvTimePcTime, EveryDayOf1970To2037AgreesWithStdChrono) {
  const sys_days first{year{1970} / January / 1}, last{year{2037} / December / 31};
  for (sys_days day = first; day <= last; day += days{1}) {
    const year_month_day ymd{day};
    const long y = static_cast<int>(ymd.year()), m = static_cast<unsigned>(ymd.month()),
               d = static_cast<unsigned>(ymd.day());
    const auto secs = static_cast<std::uint32_t>(duration_cast<seconds>(day.time_since_epoch()).count());
    ASSERT_EQ(Greg2ul(y, m, d), secs) << y << "-" << m << "-" << d;
    ASSERT_EQ(KvJulian2PcTime(JulianOf(day), 86399999), secs + 86399) << y << "-" << m << "-" << d;
    _KV_DATE date{};
    AutCalcGreg(&date, secs + 86399);
    ASSERT_TRUE(date.iYear == y && date.iMonth == m && date.iDay == d) << y << "-" << m << "-" << d;
    ASSERT_EQ(KvPcTime2Julian(secs), JulianOf(day));
  }
}

TEST(KvTimePcTime, BeforeNineteenSeventyAndFromTwentyThirtyEight) {
  // 31 December 2037 23:59:59 is the last second below the mark; any date of 2038 reaches it.
  std::uint32_t pc = 0;
  KvDateAndTime2PcTime(pc, 2037, 12, 31, 23, 59, 59);
  EXPECT_LT(pc, 0x7FFFFFFFu);
  EXPECT_EQ(pc, 2145916799u);
  EXPECT_EQ(Greg2ul(2038, 1, 1), 0x7FFFFFFFu);
  EXPECT_EQ(Greg2ul(9999, 12, 31), 0x7FFFFFFFu);
  KvDateAndTime2PcTime(pc, 2038, 6, 1, 0, 0, 1);
  EXPECT_EQ(pc, 0x80000000u);
  // Read as signed, a time past the mark is negative.
  EXPECT_EQ(KvTime(2038, 1, 1, 0, 0, 0, 0).GetPcTime(), 0x7FFFFFFF);
  EXPECT_EQ(KvTime(2038, 1, 1, 0, 0, 1, 0).GetPcTime(), INT32_MIN);
  EXPECT_LT(KvTime(2100, 5, 5, 12, 0, 0, 0).GetPcTime(), 0);
  EXPECT_GE(KvJulian2PcTime(KvDate2Julian(2038, 12, 31), 0), 0x7FFFFFFFu);

  // Before 1970: 0, whatever the time of day.
  KvDateAndTime2PcTime(pc, 1969, 12, 31, 23, 59, 59);
  EXPECT_EQ(pc, 0u);
  EXPECT_EQ(Greg2ul(1, 1, 1), 0u);
  EXPECT_EQ(KvTime(1969, 12, 31, 23, 59, 59, 999).GetPcTime(), 0);
  EXPECT_EQ(KvJulian2PcTime(KvDate2Julian(1900, 6, 1), 43200000), 0u);

  // The three-byte form: a two-digit year below 90 counts from 2000.
  const unsigned char y06[3] = {6, 2, 21}, y95[3] = {95, 2, 21}, y89[3] = {89, 12, 31}, y90[3] = {90, 1, 1};
  EXPECT_EQ(Greg2ul(y06), Greg2ul(2006, 2, 21));
  EXPECT_EQ(Greg2ul(y95), Greg2ul(1995, 2, 21));
  EXPECT_EQ(Greg2ul(y89), Greg2ul(2089, 12, 31));
  EXPECT_EQ(Greg2ul(y90), Greg2ul(1990, 1, 1));
}

TEST(KvTimePcTime, SecondsAndTimesGoBothWays) {
  std::mt19937 rng(1970);
  std::uniform_int_distribution<std::uint32_t> any(0, 2145916799u);  // up to the end of 2037
  for (int i = 0; i < 100000; ++i) {
    const std::uint32_t pc = any(rng);
    const KvTime t(static_cast<long>(pc));
    ASSERT_EQ(t.GetTimelevel(), 0);
    ASSERT_EQ(t.GetPcTime(), static_cast<long>(pc));
    ASSERT_EQ(t.GetMillisecond(), 0);
    const year_month_day ymd{floor<days>(sys_seconds{seconds{pc}})};
    long y, m, d, h, min, s;
    KvPcTime2DateAndTime(pc, y, m, d, h, min, s);
    ASSERT_EQ(y, static_cast<int>(ymd.year()));
    ASSERT_EQ(m, static_cast<long>(static_cast<unsigned>(ymd.month())));
    ASSERT_EQ(d, static_cast<long>(static_cast<unsigned>(ymd.day())));
    ASSERT_EQ(((h * 60 + min) * 60 + s), static_cast<long>(pc % 86400));
    std::uint32_t back = 0;
    KvDateAndTime2PcTime(back, y, m, d, h, min, s);
    ASSERT_EQ(back, pc);
    ASSERT_EQ(KvPcTime2Tod(pc), static_cast<long>(pc % 86400) * 1000);
  }
  // A PC time is unsigned: -1 is the last second of the 32-bit count, in 2106.
  const KvTime last(-1L);
  EXPECT_EQ(last.GetYear(), 2106);
  EXPECT_EQ(last.GetTimeOfDay(), (6 * 3600 + 28 * 60 + 15) * 1000);
  KvTime assigned;
  assigned = 86400L;
  EXPECT_EQ(assigned, KvTime(1970, 1, 2, 0, 0, 0, 0));
}

// ---------------------------------------------------------------------------------------------
// KvTime

TEST(KvTime, NullLevelsAndValidity) {
  const KvTime null;
  EXPECT_TRUE(null.IsNull());
  EXPECT_FALSE(null.IsNotNull());
  EXPECT_EQ(null.GetTimelevel(), -1);
  EXPECT_EQ(null.GetJulianDate(), 0);
  EXPECT_FALSE(null.IsValid());

  const KvTime epoch(0L);
  EXPECT_TRUE(epoch.IsNotNull());
  EXPECT_EQ(epoch.GetTimelevel(), 0);
  EXPECT_EQ(epoch, KvTime(1970, 1, 1, 0, 0, 0, 0));

  KvTime t(2006, 2, 21, 14, 5, 9, 7);
  t.SetTimelevel(-7);  // any negative level is null, but the date stays
  EXPECT_TRUE(t.IsNull());
  EXPECT_EQ(t.GetYear(), 2006);
  t.SetTimelevel(3);
  EXPECT_FALSE(t.IsNull());
  t.SetNull();
  EXPECT_EQ(KvCompareTime(t, KvTime()), 0);
  EXPECT_EQ(t.GetJulianDate(), 0);

  // The valid range, day and tod at both ends; the level plays no part.
  EXPECT_TRUE(KvTime(KVTIME_MIN_JULIAN, 0).IsValid());
  EXPECT_FALSE(KvTime(KVTIME_MIN_JULIAN - 1, 0).IsValid());
  EXPECT_TRUE(KvTime(KVTIME_MAX_JULIAN, 86399999).IsValid());
  EXPECT_FALSE(KvTime(KVTIME_MAX_JULIAN + 1, 0).IsValid());
  EXPECT_FALSE(KvTime(2451545, 86400000).IsValid());
  EXPECT_FALSE(KvTime(2451545, -1).IsValid());
  KvTime leveled(2451545, 0);
  leveled.SetTimelevel(-1);
  EXPECT_TRUE(leveled.IsValid());
}

TEST(KvTime, FieldsOfAMoment) {
  const KvTime t(2006, 2, 21, 14, 5, 9, 7);
  EXPECT_EQ(t.GetYear(), 2006);
  EXPECT_EQ(t.GetMonth(), 2);
  EXPECT_EQ(t.GetDayOfMonth(), 21);
  EXPECT_EQ(t.GetDayOfYear(), 52);
  EXPECT_EQ(t.GetHour(), 14);
  EXPECT_EQ(t.GetMinute(), 5);
  EXPECT_EQ(t.GetSecond(), 9);
  EXPECT_EQ(t.GetMillisecond(), 7);
  EXPECT_EQ(t.GetDayOfWeek(), 2);  // a Tuesday
  EXPECT_FALSE(t.IsLeapYear());
  EXPECT_TRUE(KvTime(2000, 2, 29, 0, 0, 0, 0).IsLeapYear());
  EXPECT_EQ(t.GetJulianDate(), JulianOf(sys_days{year{2006} / February / 21}));
  EXPECT_EQ(t.GetTimeOfDay(), 50709007);

  // Nothing is normalised at construction: the 30th of February is 2 March, a tod stays outside.
  EXPECT_EQ(KvTime(2006, 2, 30, 0, 0, 0, 0).GetDayOfMonth(), 2);
  EXPECT_EQ(KvTime(2006, 2, 21, 25, 0, 0, 0).GetTimeOfDay(), 25 * 3600000);

  _SYSTEMTIME st{};
  t.FillSystemTime(st);
  EXPECT_TRUE(st.wYear == 2006 && st.wMonth == 2 && st.wDay == 21 && st.wHour == 14 && st.wMinute == 5 &&
              st.wSecond == 9 && st.wMilliseconds == 7 && st.wDayOfWeek == 0);
  st.wDayOfWeek = 5;  // not read
  EXPECT_EQ(KvTime(st), t);
}

TEST(KvTime, FileTimesCountFrom1601) {
  // 100-nanosecond steps: 1970 lies 11644473600 seconds after 1 January 1601.
  auto filetime = [](std::uint64_t count) { return _FILETIME{static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(count >> 32)}; };
  EXPECT_EQ(KvTime(filetime(0)), KvTime(1601, 1, 1, 0, 0, 0, 0));
  EXPECT_EQ(KvTime(filetime(116444736000000000ull)), KvTime(0L));
  std::mt19937 rng(1601);
  for (int i = 0; i < 10000; ++i) {
    const KvTime t = RandomTime(rng);
    const std::int64_t ms_since_1601 = Millis(t) - Millis(KvTime(1601, 1, 1, 0, 0, 0, 0));
    if (ms_since_1601 < 0) continue;
    const std::uint64_t count = static_cast<std::uint64_t>(ms_since_1601) * 10000 + 9999;  // sub-ms steps drop
    ASSERT_EQ(KvTime(filetime(count)), t);
  }
  EXPECT_TRUE(KvTime(filetime(0x8000000000000000ull)).IsNull());
}

// ---------------------------------------------------------------------------------------------
// The sortable form

TEST(KvTimeSortable, TextsOfTimesNullAndLevels) {
  KvTime t(2006, 2, 21, 14, 5, 9, 7);
  EXPECT_STREQ(t.AsSortableString(false), "20060221140509007");
  EXPECT_STREQ(t.AsSortableString(true), "0000000020060221140509007");
  t.SetTimelevel(255);
  EXPECT_STREQ(t.AsSortableString(true), "000000ff20060221140509007");
  t.SetTimelevel(-1);  // a valid date at level -1 prints, and reads back as null
  EXPECT_STREQ(t.AsSortableString(true), "ffffffff20060221140509007");
  EXPECT_TRUE(KvTime().AssignSortableString("ffffffff20060221140509007", true).IsNull());

  EXPECT_STREQ(KvTime().AsSortableString(false), "*****************");
  EXPECT_STREQ(KvTime().AsSortableString(true), "*************************");
  EXPECT_STREQ(KvTime(KVTIME_MAX_JULIAN + 1, 0).AsSortableString(false), "*****************");
  EXPECT_STREQ(KvTime(KVTIME_MIN_JULIAN, 0).AsSortableString(false), "00010101000000000");
  EXPECT_STREQ(KvTime(KVTIME_MAX_JULIAN, 86399999).AsSortableString(false), "99991231235959999");

  // Into a buffer: 18 and 26 bytes are enough; a shorter one is reported and gets what fits.
  char buf[32];
  std::memset(buf, 'x', sizeof buf);
  t.SetTimelevel(0x1234abcd);
  t.AsSortableString(buf, 26, true);
  EXPECT_STREQ(buf, "1234abcd20060221140509007");
  t.AsSortableString(buf, 18, false);
  EXPECT_STREQ(buf, "20060221140509007");
  std::memset(buf, 'x', sizeof buf);
  t.AsSortableString(buf, 25, true);
  EXPECT_EQ(LastDebugLine(), "stBufLen >= 26");
  EXPECT_STREQ(buf, "1234abcd2006022114050900");
  EXPECT_EQ(buf[25], 'x');
  t.AsSortableString(buf, 10, false);
  EXPECT_EQ(LastDebugLine(), "stBufLen >= 18");
  EXPECT_STREQ(buf, "200602211");
}

TEST(KvTimeSortable, TextsThatAreRefused) {
  KvTime t(2006, 2, 21, 0, 0, 0, 0);
  for (const char* bad : {"", "2006022114050900", "200602211405090070", "2006022114050900x", " 20060221140509007",
                          "2006-02-21140509007"}) {
    t = KvTime(0L);
    EXPECT_TRUE(t.AssignSortableString(bad, false).IsNull()) << bad;
    EXPECT_FALSE(KvTime::IsValidSortableString(bad, false)) << bad;
  }
  for (const char* bad : {"0000000g20060221140509007", "000000ff2006022114050900a", "20060221140509007",
                          "000000ff200602211405090071"}) {
    t = KvTime(0L);
    EXPECT_TRUE(t.AssignSortableString(bad, true).IsNull()) << bad;
    EXPECT_FALSE(KvTime::IsValidSortableString(bad, true)) << bad;
  }
  EXPECT_FALSE(KvTime::IsValidSortableString(nullptr, false));
  EXPECT_TRUE(KvTime::IsValidSortableString("0000ABcd20060221140509007", true));
  EXPECT_EQ(t.AssignSortableString("0000ABcd20060221140509007", true).GetTimelevel(), 0xabcd);

  // Month 13 passes the character test and is taken as it stands: January of the next year.
  EXPECT_TRUE(KvTime::IsValidSortableString("20061321000000000", false));
  t.AssignSortableString("20061321000000000", false);
  EXPECT_TRUE(t.IsNotNull());
  EXPECT_EQ(t.GetTimelevel(), 0);
  EXPECT_EQ(t, KvTime(2006, 13, 21, 0, 0, 0, 0));
  EXPECT_EQ(t.GetYear(), 2007);
}

TEST(KvTimeSortable, RandomTimesGoRoundAndSortAsTheirTexts) {
  std::mt19937 rng(17);
  std::uniform_int_distribution<long> level(0, INT32_MAX);
  KvTime prev = RandomTime(rng);
  for (int i = 0; i < 20000; ++i) {
    KvTime t = RandomTime(rng);
    const KvString plain = t.AsSortableString(false);
    ASSERT_EQ(plain.GetLength(), 17);
    ASSERT_TRUE(KvTime::IsValidSortableString(plain, false));
    ASSERT_EQ(KvTime().AssignSortableString(plain, false), t) << plain.GetCharPtr();
    t.SetTimelevel(level(rng) % 3 == 0 ? 0 : level(rng));
    const KvString leveled = t.AsSortableString(true);
    ASSERT_EQ(leveled.GetLength(), 25);
    const KvTime back = KvTime().AssignSortableString(leveled, true);
    ASSERT_EQ(back, t);
    ASSERT_EQ(back.GetTimelevel(), t.GetTimelevel());
    // At level 0 the texts sort as the times do.
    const int by_time = KvCompareTime(KvTime(prev.GetJulianDate(), prev.GetTimeOfDay()),
                                      KvTime(t.GetJulianDate(), t.GetTimeOfDay()));
    const int by_text = std::strcmp(prev.AsSortableString(false), plain);
    ASSERT_EQ(by_time < 0, by_text < 0);
    ASSERT_EQ(by_time == 0, by_text == 0);
    prev = t;
  }
}

// ---------------------------------------------------------------------------------------------
// Formats

TEST(KvTimeFormat, TokensAndSeparators) {
  const KvTime t(2006, 2, 21, 14, 5, 9, 7);
  EXPECT_STREQ(t.AsFormatedString("DD.MM.YYYY hh:mm:ss.ttt"), "21.02.2006 14:05:09.007");
  EXPECT_STREQ(t.AsFormatedString("YY/MM/DD"), "06/02/21");
  EXPECT_STREQ(t.AsFormatedString("YYYY-MM-DD hh:mm"), "2006-02-21 14:05");
  EXPECT_STREQ(KvTime(2006, 2, 21, 14, 5, 9, 789).AsFormatedString("ss,t;tt;ttt"), "09,7;78;789");
  EXPECT_STREQ(t.AsFormatedString("hh."), "14.");  // one separator may end the format
  // A token is judged by its length and last letter only.
  EXPECT_STREQ(t.AsFormatedString("xD"), "21");
  // Bad formats: two separators in a row, a leading separator, lengths and letters outside the
  // language, the empty format. The null time gives nothing for any format.
  for (const char* bad : {"DD..MM", "DD. MM", ".DD", "D.MM", "YYY", "YYYYY", "MMM", "tttt", "DDX", "hh:mm:ss.ttt..",
                          "YYYY-MM-DDThh:mm", ""})
    EXPECT_STREQ(t.AsFormatedString(bad), "") << bad;
  EXPECT_STREQ(KvTime().AsFormatedString("DD.MM.YYYY"), "");
  EXPECT_STREQ(t.AsFormatedString(nullptr), "");

  // A long format writes as a short one does, over and over.
  std::string long_format, long_text;
  for (int i = 0; i < 100; ++i) {
    long_format += i % 2 ? "YYYY-MM-DD " : "hh:mm:ss.ttt ";
    long_text += i % 2 ? "2006-02-21 " : "14:05:09.007 ";
  }
  long_format.pop_back();
  long_text.pop_back();
  EXPECT_STREQ(t.AsFormatedString(long_format.c_str()), long_text.c_str());
  EXPECT_STREQ(t.AsFormatedString((long_format + "..").c_str()), "");

  // A time that is not valid writes the last digits of its fields: the text keeps the format's
  // length.
  const KvString odd = KvTime(0, 90000000).AsFormatedString("YYYY-MM-DD hh:mm");
  EXPECT_EQ(odd.GetLength(), 16);
  EXPECT_STREQ(odd.Right(5), "25:00");
}

TEST(KvTimeFormat, ParsingIsLoose) {
  long y, m, d, h, min, s, ms;
  ASSERT_TRUE(KvParseFormatedString("DD.MM", "1.2", y, m, d, h, min, s, ms));
  EXPECT_TRUE(d == 1 && m == 2 && y == 0 && h == 0 && min == 0 && s == 0 && ms == 0);
  // Side by side, the run length cuts the digits.
  ASSERT_TRUE(KvParseFormatedString("YYYYMMDD", "20060221", y, m, d, h, min, s, ms));
  EXPECT_TRUE(y == 2006 && m == 2 && d == 21);
  // Without a token behind, every digit counts; separators skip any character.
  ASSERT_TRUE(KvParseFormatedString("DD.MM.YYYY", "21x2/20061", y, m, d, h, min, s, ms));
  EXPECT_TRUE(d == 21 && m == 2 && y == 20061);
  // Two-digit years: below 90 from 2000.
  ASSERT_TRUE(KvParseFormatedString("YY", "89", y, m, d, h, min, s, ms));
  EXPECT_EQ(y, 2089);
  ASSERT_TRUE(KvParseFormatedString("YY", "90", y, m, d, h, min, s, ms));
  EXPECT_EQ(y, 1990);
  // A thousandth is the number read.
  ASSERT_TRUE(KvParseFormatedString("ss.ttt", "09.5", y, m, d, h, min, s, ms));
  EXPECT_TRUE(s == 9 && ms == 5);
  // Leading characters of the format skip as many of the text.
  ASSERT_TRUE(KvParseFormatedString("on hh:mm", "um 14:05", y, m, d, h, min, s, ms));
  EXPECT_TRUE(h == 14 && min == 5);
  // Used up: the text after the day, or the format after the month.
  ASSERT_TRUE(KvParseFormatedString("DD.MM.YYYY", "21", y, m, d, h, min, s, ms));
  EXPECT_TRUE(d == 21 && m == 0 && y == 0);
  ASSERT_TRUE(KvParseFormatedString("DD.MM", "21.02.2006", y, m, d, h, min, s, ms));
  EXPECT_TRUE(d == 21 && m == 2 && y == 0);
  ASSERT_TRUE(KvParseFormatedString("", "21", y, m, d, h, min, s, ms));
  // t is a token letter wherever it stands: "at" is a thousandth with no digit under it.
  EXPECT_FALSE(KvParseFormatedString("at hh:mm", "um 14:05", y, m, d, h, min, s, ms));

  // Failures: an empty text, a run of another length, a token with no digit under it.
  d = 5;
  EXPECT_FALSE(KvParseFormatedString("DD", "", y, m, d, h, min, s, ms));
  EXPECT_EQ(d, 0);
  EXPECT_FALSE(KvParseFormatedString("D.MM", "1.02", y, m, d, h, min, s, ms));
  EXPECT_FALSE(KvParseFormatedString("YYY", "200", y, m, d, h, min, s, ms));
  EXPECT_FALSE(KvParseFormatedString("tttt", "1234", y, m, d, h, min, s, ms));
  EXPECT_FALSE(KvParseFormatedString("DD.MM", "21.x2", y, m, d, h, min, s, ms));

  KvTime t(0L);
  t.SetTimelevel(4);
  t.AssignFormatedString("DD.MM.YYYY hh:mm:ss.ttt", "21.02.2006 14:05:09.007");
  EXPECT_EQ(t, KvTime(2006, 2, 21, 14, 5, 9, 7));
  EXPECT_EQ(t.GetTimelevel(), 0);
  EXPECT_TRUE(t.AssignFormatedString("DD.MM", "xx").IsNull());
  // Nothing checks that the date exists.
  EXPECT_EQ(t.AssignFormatedString("DD.MM.YYYY", "31.02.2006"), KvTime(2006, 3, 3, 0, 0, 0, 0));
}

TEST(KvTimeFormat, RandomTimesGoRoundThroughFormats) {
  std::mt19937 rng(2006);
  const char* formats[] = {"DD.MM.YYYY hh:mm:ss.ttt", "YYYY-MM-DD hh:mm:ss,ttt", "YYYYMMDD hhmmssttt", "MM/DD/YYYY hh.mm.ss.ttt"};
  for (int i = 0; i < 20000; ++i) {
    const KvTime t = RandomTime(rng);
    const char* f = formats[i % 4];
    // "YYYYMMDD" is one token to the writer (no separator) but three to the reader.
    const KvString text = i % 4 == 2 ? KvString(t.AsSortableString(false).Left(8) + " " +
                                                t.AsSortableString(false).Right(9))
                                     : t.AsFormatedString(f);
    ASSERT_EQ(text.GetLength(), static_cast<long>(std::strlen(f))) << f;
    ASSERT_EQ(KvTime().AssignFormatedString(f, text), t) << f << " " << text.GetCharPtr();
  }
}

TEST(KvTimeFormat, LocalizedTextInTheCLocale) {
  EXPECT_STREQ(KvTime(2006, 2, 21, 14, 5, 9, 7).AsLocalizedString(), "Tuesday, 21 February 2006 14:05");
  EXPECT_STREQ(KvTime(1, 1, 1, 0, 0, 0, 0).AsLocalizedString(), "Monday, 1 January 1 00:00");
  EXPECT_STREQ(KvTime().AsLocalizedString(), "");
}

// ---------------------------------------------------------------------------------------------
// Arithmetic and order

TEST(KvTimeArithmetic, WrapsAroundMidnight) {
  const KvTimeSpan ms(0, 0, 0, 0, 1);
  KvTime t(2006, 12, 31, 23, 59, 59, 999);
  t.SetTimelevel(9);
  t += ms;
  EXPECT_EQ(t.GetTimelevel(), 9);
  EXPECT_STREQ(t.AsSortableString(false), "20070101000000000");
  t -= ms;
  EXPECT_STREQ(t.AsSortableString(false), "20061231235959999");
  const KvTime midnight(2000, 3, 1, 0, 0, 0, 0);
  EXPECT_STREQ((midnight - ms).AsSortableString(false), "20000229235959999");
  EXPECT_EQ((midnight - ms).GetTimeOfDay(), 86399999);
  EXPECT_EQ((ms + midnight).GetTimeOfDay(), 1);

  // Normalize moves whole days either way.
  KvTime over(2451545, 3 * 86400000 + 5);
  EXPECT_EQ(over.Normalize(), KvTime(2451548, 5));
  KvTime under(2451545, -(2 * 86400000 + 5));
  EXPECT_EQ(under.Normalize(), KvTime(2451542, 86399995));
}

TEST(KvTimeArithmetic, RandomSumsAgreeWithACountOfMilliseconds) {
  std::mt19937 rng(86400);
  std::uniform_int_distribution<long> days(-100000, 100000), tod(-86399999, 86399999);
  for (int i = 0; i < 100000; ++i) {
    const KvTime a = RandomTime(rng), b = RandomTime(rng);
    const KvTimeSpan d = a - b;
    ASSERT_EQ(static_cast<std::int64_t>(d.GetDays()) * 86400000 + d.GetTimeOfDay(), Millis(a) - Millis(b));
    ASSERT_TRUE(d.GetTimeOfDay() > -86400000 && d.GetTimeOfDay() < 86400000);
    ASSERT_TRUE(d.GetDays() == 0 || (d.GetDays() > 0) == (d.GetTimeOfDay() >= 0));
    ASSERT_EQ(b + d, a);
    ASSERT_EQ(a - d, b);

    const KvTimeSpan s(days(rng), 0, 0, 0, tod(rng));
    const std::int64_t s_ms = static_cast<std::int64_t>(s.GetDays()) * 86400000 + s.GetTimeOfDay();
    ASSERT_EQ(a + s, FromMillis(Millis(a) + s_ms));
    ASSERT_EQ(a - s, FromMillis(Millis(a) - s_ms));
    const KvTimeSpan sum = s + d, diff = s - d;
    ASSERT_EQ(static_cast<std::int64_t>(sum.GetDays()) * 86400000 + sum.GetTimeOfDay(), s_ms + Millis(a) - Millis(b));
    ASSERT_EQ(static_cast<std::int64_t>(diff.GetDays()) * 86400000 + diff.GetTimeOfDay(), s_ms - Millis(a) + Millis(b));
    ASSERT_EQ(KvCompareTimeSpan(s, d) < 0, s_ms < Millis(a) - Millis(b));
  }
}

TEST(KvTimeArithmetic, OrderIsLevelThenDayThenTime) {
  KvTime a(2006, 2, 21, 0, 0, 0, 0), b(2006, 2, 21, 0, 0, 0, 0);
  b.SetTimelevel(1);
  EXPECT_GT(KvCompareTime(b, a), 0);
  EXPECT_TRUE(b > a && a < b && a != b && a <= b && b >= a);
  EXPECT_TRUE((b - a).IsNull());  // the levels play no part in the difference
  EXPECT_EQ(KvCompareTime(&b, &a), 1);

  // A higher level sorts after every time of a lower one; the null time before all.
  const KvTime later(9999, 12, 31, 23, 59, 59, 999);
  EXPECT_LT(KvCompareTime(later, b), 0);
  EXPECT_LT(KvCompareTime(KvTime(), KvTime(KVTIME_MIN_JULIAN, 0)), 0);

  // The answer is the difference of the first fields that differ.
  EXPECT_EQ(KvCompareTime(KvTime(2451545, 10), KvTime(2451548, 0)), -3);
  EXPECT_EQ(KvCompareTime(KvTime(2451545, 10), KvTime(2451545, 4)), 6);
  EXPECT_EQ(KvCompareTimeIgnoreMilliseconds(KvTime(2451545, 1999), KvTime(2451545, 1000)), 0);
  EXPECT_EQ(KvCompareTimeIgnoreMilliseconds(KvTime(2451545, 3999), KvTime(2451545, 1000)), 2);
  EXPECT_EQ(KvCompareTimeIgnoreMilliseconds(&b, &a), 1);
  // A difference beyond 32 bits keeps its sign.
  KvTime high(2451545, 0), low(2451545, 0);
  high.SetTimelevel(INT32_MAX);
  low.SetTimelevel(-2);
  EXPECT_EQ(KvCompareTime(high, low), INT_MAX);
  EXPECT_EQ(KvCompareTime(low, high), -INT_MAX);

  EXPECT_EQ(KvCompareTimeSpan(KvTimeSpan(1, 0, 0, 0, 0), KvTimeSpan(0, 23, 0, 0, 0)), 1);
  const KvTimeSpan x(0, 0, 0, 0, 5), y(0, 0, 0, 0, 2);
  EXPECT_EQ(KvCompareTimeSpan(&x, &y), 3);
  EXPECT_TRUE(x > y && y < x && x != y && x >= y && y <= x && x == KvTimeSpan(0, 0, 0, 0, 5));
}

// ---------------------------------------------------------------------------------------------
// KvTimeSpan

TEST(KvTimeSpan, ConstructionAndNormalising) {
  const KvTimeSpan zero;
  EXPECT_TRUE(zero.IsNull() && zero.IsPositive());
  const KvTimeSpan a(0, 25, 0, 0, 0);
  EXPECT_EQ(a.GetDays(), 1);
  EXPECT_EQ(a.GetTimeOfDay(), 3600000);
  const KvTimeSpan b(1, -1, 0, 0, 0);  // a day less an hour is 23 hours
  EXPECT_EQ(b.GetDays(), 0);
  EXPECT_EQ(b.GetTimeOfDay(), 82800000);
  EXPECT_TRUE(b.IsPositive());
  const KvTimeSpan c(-1, 1, 0, 0, 0);
  EXPECT_EQ(c.GetDays(), 0);
  EXPECT_EQ(c.GetTimeOfDay(), -82800000);
  EXPECT_FALSE(c.IsPositive());
  const KvTimeSpan d(-2, 0, 0, 0, 1);
  EXPECT_TRUE(d.GetDays() == -1 && d.GetTimeOfDay() == -86399999);

  const KvTimeSpan secs(90061L);  // a day, an hour, a minute, a second
  EXPECT_TRUE(secs.GetDays() == 1 && secs.GetTimeOfDay() == 3661000);
  const KvTimeSpan neg(-90061L);
  EXPECT_TRUE(neg.GetDays() == -1 && neg.GetTimeOfDay() == -3661000);
  EXPECT_EQ(neg.GetTotalSeconds(), -90061);
  EXPECT_EQ(neg.GetPcTime(), -90061);

  // Hours beyond 596 pass 32 bits in the millisecond sum and wrap.
  const KvTimeSpan wrapped(0, 600, 0, 0, 0);
  const std::int32_t want = static_cast<std::int32_t>(static_cast<std::uint32_t>(600u * 3600000u));
  EXPECT_EQ(static_cast<std::int64_t>(wrapped.GetDays()) * 86400000 + wrapped.GetTimeOfDay(), want);

  KvTimeSpan s(3, 4, 5, 6, 7);
  s.SetNull();
  EXPECT_TRUE(s.IsNull());
}

TEST(KvTimeSpan, TotalsAndParts) {
  const KvTimeSpan s(2, 3, 4, 5, 6);
  EXPECT_EQ(s.GetHours(), 3);
  EXPECT_EQ(s.GetMinutes(), 4);
  EXPECT_EQ(s.GetSeconds(), 5);
  EXPECT_EQ(s.GetMilliseconds(), 6);
  EXPECT_EQ(s.GetTotalHours(), 51);
  EXPECT_EQ(s.GetTotalMinutes(), 51 * 60 + 4);
  EXPECT_EQ(s.GetTotalSeconds(), (51 * 60 + 4) * 60 + 5);
  EXPECT_EQ(s.GetTotalMilliseconds(), ((51 * 60 + 4) * 60 + 5) * 1000 + 6);
  // Milliseconds pass 32 bits beyond about 24.8 days, and wrap.
  for (long days : {24L, 25L, 30L, -25L, 1000L}) {
    const KvTimeSpan big(days, 1, 2, 3, 4);
    const std::int64_t exact = static_cast<std::int64_t>(big.GetDays()) * 86400000 + big.GetTimeOfDay();
    EXPECT_EQ(big.GetTotalMilliseconds(), static_cast<std::int32_t>(static_cast<std::uint32_t>(exact))) << days;
  }
}

TEST(KvTimeSpan, SortableTexts) {
  const KvTimeSpan minus90(0, 0, -90, 0, 0);
  EXPECT_STREQ(minus90.AsSortableString(), "+0000000000-01-30+00+000");
  EXPECT_STREQ(KvTimeSpan(3, 4, 5, 6, 7).AsSortableString(), "+0000000003+04+05+06+007");
  EXPECT_STREQ(KvTimeSpan().AsSortableString(), "");
  EXPECT_TRUE(KvTimeSpan(5L).AssignSortableString("").IsNull());

  // Every field reads with its own sign; a short text reads the missing fields as 0.
  KvTimeSpan s;
  s.AssignSortableString("+0000000001-01+00+00+000");
  EXPECT_TRUE(s.GetDays() == 0 && s.GetTimeOfDay() == 23 * 3600000);
  s.AssignSortableString("-0000000002");
  EXPECT_TRUE(s.GetDays() == -2 && s.GetTimeOfDay() == 0);
  // Days beyond 32 bits are clamped as a 32-bit strtol does.
  s.AssignSortableString("+9999999999+00+00+00+000");
  EXPECT_EQ(s.GetDays(), INT32_MAX);
  s.AssignSortableString("-9999999999+00+00+00+000");
  EXPECT_EQ(s.GetDays(), INT32_MIN);

  std::mt19937 rng(24);
  std::uniform_int_distribution<long> days(INT32_MIN, INT32_MAX), tod(-86399999, 86399999);
  for (int i = 0; i < 20000; ++i) {
    const KvTimeSpan r(i % 2 ? days(rng) : days(rng) % 100, 0, 0, 0, tod(rng));
    const KvString text = r.AsSortableString();
    if (r.IsNull()) continue;
    ASSERT_EQ(text.GetLength(), 24) << text.GetCharPtr();
    ASSERT_EQ(KvTimeSpan().AssignSortableString(text), r) << text.GetCharPtr();
  }
}

TEST(KvTimeSpan, FormattedTexts) {
  const KvTimeSpan s(2, 3, 4, 5, 67);
  EXPECT_STREQ(s.AsFormatedString("DD hh:mm:ss.ttt"), "02 03:04:05.067");
  EXPECT_STREQ(s.AsFormatedString("hh:mm:ss.t"), "03:04:05.0");
  EXPECT_STREQ(KvTimeSpan(0, 0, -90, 0, 0).AsFormatedString("hh:mm"), "-01:30");
  EXPECT_STREQ(KvTimeSpan(123, 0, 0, 0, 0).AsFormatedString("DD hh"), "123 00");
  EXPECT_STREQ(KvTimeSpan().AsFormatedString("DD hh"), "");
  for (const char* bad : {"YYYY", "MM", "DD..hh", "hhh", ""}) EXPECT_STREQ(s.AsFormatedString(bad), "") << bad;

  KvTimeSpan r;
  r.AssignFormatedString("DD hh:mm:ss.ttt", "02 03:04:05.067");
  EXPECT_EQ(r, s);
  r.AssignFormatedString("hh:mm:ss.tt", "25:00:00.50");  // t digits are milliseconds as they stand
  EXPECT_TRUE(r.GetDays() == 1 && r.GetTimeOfDay() == 3600050);
  EXPECT_TRUE(r.AssignFormatedString("hh:mm", "1:30").IsNull());     // another length
  EXPECT_TRUE(r.AssignFormatedString("hh:mm", "0x:30").IsNull());    // no digit under a token
  EXPECT_TRUE(r.AssignFormatedString("hh::mm", "01::30").IsNull());  // a bad format
  r.AssignFormatedString("hh:mm", "01-30");  // a separator's place takes any character
  EXPECT_EQ(r, KvTimeSpan(0, 1, 30, 0, 0));

  std::mt19937 rng(99);
  std::uniform_int_distribution<long> days(0, 99), tod(0, 86399999);
  for (int i = 0; i < 20000; ++i) {
    const KvTimeSpan x(days(rng), 0, 0, 0, tod(rng));
    if (x.IsNull()) continue;
    const KvString text = x.AsFormatedString("DD:hh:mm:ss.ttt");
    ASSERT_EQ(KvTimeSpan().AssignFormatedString("DD:hh:mm:ss.ttt", text), x) << text.GetCharPtr();
  }
}

// ---------------------------------------------------------------------------------------------
// Clocks and the arena

// The local clock less the UTC clock, read around one another, in whole minutes.
long LocalOffsetMinutes() {
  for (int tries = 0; tries < 5; ++tries) {
    const KvTime u1 = KvTime::GetCurrentUtcTime(), l = KvTime::GetCurrentLocalTime(),
                 u2 = KvTime::GetCurrentUtcTime();
    if ((u2 - u1).GetTotalMilliseconds() > 2000) continue;  // the machine paused; read again
    const long ms = (l - u1).GetTotalMilliseconds();
    return (ms + (ms >= 0 ? 30000 : -30000)) / 60000;
  }
  return LONG_MIN;
}

void PinZone(const char* tz) {
  ::setenv("TZ", tz, 1);
  ::tzset();
}

TEST(KvTimeClock, UtcIsTheSystemClock) {
  const KvTime t = KvTime::GetCurrentUtcTime();
  const auto now = system_clock::now();
  const std::int64_t ms = duration_cast<milliseconds>(now.time_since_epoch()).count();
  const KvTime expect = FromMillis(ms + std::int64_t{kJulian1970} * 86400000);
  EXPECT_EQ(t.GetTimelevel(), 0);
  EXPECT_TRUE(t.IsValid());
  EXPECT_LT(std::llabs(Millis(expect) - Millis(t)), 2000);
}

TEST(KvTimeClock, LocalFollowsThePinnedZone) {
  PinZone("UTC0");
  EXPECT_EQ(LocalOffsetMinutes(), 0);
  PinZone("IST-5:30");  // a zone given in the variable itself
  EXPECT_EQ(LocalOffsetMinutes(), 5 * 60 + 30);
  PinZone("XYZ+3");
  EXPECT_EQ(LocalOffsetMinutes(), -3 * 60);
  PinZone("Asia/Kathmandu");  // from the system's zone files, when it has them
  const long kathmandu = LocalOffsetMinutes();
  if (kathmandu != 0) {
    EXPECT_EQ(kathmandu, 5 * 60 + 45);
  }
  PinZone("UTC0");
}

TEST(KvTimeArena, NewAndDeleteCountToTheirWatchers) {
  // Blocks held by a watcher's type: allocations count up, frees count down.
  auto held = [](const KvGranularityMemoryWatcher* w) { return w->GetAllocated() + w->GetFreed(); };
  const KvGranularityMemoryWatcher* wt = KvTime::_GetWatcher();
  const KvGranularityMemoryWatcher* ws = KvTimeSpan::_GetWatcher();
  EXPECT_STREQ(wt->GetType(), "KvTime");
  EXPECT_STREQ(ws->GetType(), "KvTimeSpan");
  const std::int64_t t0 = held(wt), s0 = held(ws);
  KvTime* t = new KvTime(2006, 2, 21, 14, 5, 9, 7);
  KvTimeSpan* s = new KvTimeSpan(1, 2, 3, 4, 5);
  EXPECT_EQ(held(wt), t0 + 1);
  EXPECT_EQ(held(ws), s0 + 1);
  EXPECT_EQ((*t + *s).GetDayOfMonth(), 22);
  delete t;
  delete s;
  EXPECT_EQ(held(wt), t0);
  EXPECT_EQ(held(ws), s0);
}

}  // namespace
