// kvd_time_bench: KvTime's texts and calendar beside the C library (strftime, strptime, timegm,
// gmtime_r) and std::chrono's civil calendar, in one run.
//
// An item is one time written or read. Every case works through the same 1024 moments of the
// years 1970 to 2037 (the range all peers serve), in turn, so that nothing folds to a constant.
//
// Fairness:
//   - A KvTime holds a Julian day and a time of day, so writing one includes finding its date;
//     the "strftime" peer starts from a ready struct tm and does not, the "gmtime+strftime" peer
//     starts from seconds as KvTime starts from its count. strftime writes no milliseconds: each
//     peer appends three digits by hand.
//   - Cases named "...String" make a new text object: a KvString (an arena block) for KvTime, a
//     std::string for the peers (23 characters: beyond its inner buffer, one malloc).
//     "SortableBuffer" writes into a caller's buffer on every side.
//   - Reading gives a point in time on every side: KvTime its day and tod; strptime a struct tm,
//     turned into seconds by timegm; std::chrono (g++ 12 has no chrono::parse) digits read by
//     std::from_chars and a sys_days from a year_month_day.
//   - glibc's strftime and strptime run in the C locale here.
//
// The table at the end gives, per case and peer, KvTime's items per second divided by the peer's:
// above 1, KvTime is faster. On a busy machine run with --benchmark_repetitions=5
// --benchmark_report_aggregates_only=true: the table then compares medians.
#include <benchmark/benchmark.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvstring.h"
#include "lib/system/kvtime.h"
#include "bench/peer_ratio.h"

namespace {

using namespace std::chrono;

constexpr std::size_t kMoments = 1024;
constexpr const char* kKvFormat = "DD.MM.YYYY hh:mm:ss.ttt";
constexpr const char* kCFormat = "%d.%m.%Y %H:%M:%S";

struct Moment {
  KvTime kv;                  // the moment as KvTime
  std::time_t secs;           // seconds since 1970
  int ms;                     // its milliseconds
  std::tm tm;                 // broken down (UTC)
  char sortable[18];          // YYYYMMDDhhmmssttt
  char formatted[24];         // DD.MM.YYYY hh:mm:ss.ttt
};

const std::vector<Moment>& Moments() {
  static const std::vector<Moment> moments = [] {
    std::vector<Moment> v(kMoments);
    std::mt19937 rng(2006);
    std::uniform_int_distribution<long> secs(0, 2145916799), ms(0, 999);
    for (Moment& m : v) {
      m.secs = static_cast<std::time_t>(secs(rng));
      m.ms = static_cast<int>(ms(rng));
      ::gmtime_r(&m.secs, &m.tm);
      m.kv = KvTime(static_cast<long>(m.secs));
      m.kv += KvTimeSpan(0, 0, 0, 0, m.ms);
      m.kv.AsSortableString(m.sortable, sizeof m.sortable, false);
      std::snprintf(m.formatted, sizeof m.formatted, "%s", m.kv.AsFormatedString(kKvFormat).GetCharPtr());
    }
    return v;
  }();
  return moments;
}

// Three digits of milliseconds at p.
inline char* PutMillis(char* p, int ms) {
  p[0] = static_cast<char>('0' + ms / 100);
  p[1] = static_cast<char>('0' + ms / 10 % 10);
  p[2] = static_cast<char>('0' + ms % 10);
  return p + 3;
}

// The date and clock of seconds and milliseconds by std::chrono, written like the sortable form.
inline int ChronoSortable(char* out, std::size_t cb, std::time_t secs, int ms) {
  const sys_seconds s{seconds{secs}};
  const sys_days day = floor<days>(s);
  const year_month_day ymd{day};
  const hh_mm_ss<seconds> hms{s - day};
  return std::snprintf(out, cb, "%04d%02u%02u%02d%02d%02d%03d", static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                       static_cast<int>(hms.hours().count()), static_cast<int>(hms.minutes().count()),
                       static_cast<int>(hms.seconds().count()), ms);
}

// --- Writing ------------------------------------------------------------------------------------

void BM_SortableBuffer_KvTime(benchmark::State& state) {
  const auto& v = Moments();
  char buf[18];
  std::size_t i = 0;
  for (auto _ : state) {
    v[i++ % kMoments].kv.AsSortableString(buf, sizeof buf, false);
    benchmark::DoNotOptimize(buf);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_SortableBuffer_strftime(benchmark::State& state) {
  const auto& v = Moments();
  char buf[18];
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& m = v[i++ % kMoments];
    const std::size_t n = std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S", &m.tm);
    *PutMillis(buf + n, m.ms) = '\0';
    benchmark::DoNotOptimize(buf);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_SortableBuffer_gmtime_strftime(benchmark::State& state) {
  const auto& v = Moments();
  char buf[18];
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& m = v[i++ % kMoments];
    std::tm tm;
    ::gmtime_r(&m.secs, &tm);
    const std::size_t n = std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S", &tm);
    *PutMillis(buf + n, m.ms) = '\0';
    benchmark::DoNotOptimize(buf);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_SortableBuffer_chrono(benchmark::State& state) {
  const auto& v = Moments();
  char buf[64];  // room for any int the compiler cannot rule out
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& m = v[i++ % kMoments];
    ChronoSortable(buf, sizeof buf, m.secs, m.ms);
    benchmark::DoNotOptimize(buf);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_SortableString_KvTime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    KvString s = v[i++ % kMoments].kv.AsSortableString(false);
    benchmark::DoNotOptimize(s.GetCharPtr());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_SortableString_strftime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& m = v[i++ % kMoments];
    char buf[18];
    const std::size_t n = std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S", &m.tm);
    PutMillis(buf + n, m.ms);
    std::string s(buf, n + 3);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_FormatString_KvTime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    KvString s = v[i++ % kMoments].kv.AsFormatedString(kKvFormat);
    benchmark::DoNotOptimize(s.GetCharPtr());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_FormatString_strftime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& m = v[i++ % kMoments];
    char buf[32];
    std::size_t n = std::strftime(buf, sizeof buf, kCFormat, &m.tm);
    buf[n++] = '.';
    PutMillis(buf + n, m.ms);
    std::string s(buf, n + 3);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_FormatString_gmtime_strftime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& m = v[i++ % kMoments];
    std::tm tm;
    ::gmtime_r(&m.secs, &tm);
    char buf[32];
    std::size_t n = std::strftime(buf, sizeof buf, kCFormat, &tm);
    buf[n++] = '.';
    PutMillis(buf + n, m.ms);
    std::string s(buf, n + 3);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations());
}

// --- Reading ------------------------------------------------------------------------------------

void BM_ParseSortable_KvTime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  KvTime t;
  for (auto _ : state) {
    t.AssignSortableString(v[i++ % kMoments].sortable, false);
    benchmark::DoNotOptimize(t);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_ParseSortable_strptime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const char* text = v[i++ % kMoments].sortable;
    std::tm tm{};
    const char* rest = ::strptime(text, "%Y%m%d%H%M%S", &tm);
    int ms = 0;
    if (rest != nullptr) std::from_chars(rest, rest + 3, ms);
    const std::time_t secs = ::timegm(&tm);
    benchmark::DoNotOptimize(secs);
    benchmark::DoNotOptimize(ms);
  }
  state.SetItemsProcessed(state.iterations());
}

// The fields by std::from_chars, the day by std::chrono.
inline sys_time<milliseconds> ChronoRead(const char* p, const int* widths, const int* order) {
  int f[7] = {};
  for (int k = 0; k < 7; ++k) {
    std::from_chars(p, p + widths[k], f[order[k]]);
    p += widths[k] + (widths[k + 7] != 0 ? 1 : 0);
  }
  const sys_days day{year{f[0]} / month{static_cast<unsigned>(f[1])} / static_cast<unsigned>(f[2])};
  return day + hours{f[3]} + minutes{f[4]} + seconds{f[5]} + milliseconds{f[6]};
}

void BM_ParseSortable_chrono(benchmark::State& state) {
  static constexpr int widths[14] = {4, 2, 2, 2, 2, 2, 3, 0, 0, 0, 0, 0, 0, 0};
  static constexpr int order[7] = {0, 1, 2, 3, 4, 5, 6};
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const auto t = ChronoRead(v[i++ % kMoments].sortable, widths, order);
    benchmark::DoNotOptimize(t);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_ParseFormat_KvTime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  KvTime t;
  for (auto _ : state) {
    t.AssignFormatedString(kKvFormat, v[i++ % kMoments].formatted);
    benchmark::DoNotOptimize(t);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_ParseFormat_strptime(benchmark::State& state) {
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const char* text = v[i++ % kMoments].formatted;
    std::tm tm{};
    const char* rest = ::strptime(text, kCFormat, &tm);
    int ms = 0;
    if (rest != nullptr && *rest == '.') std::from_chars(rest + 1, rest + 4, ms);
    const std::time_t secs = ::timegm(&tm);
    benchmark::DoNotOptimize(secs);
    benchmark::DoNotOptimize(ms);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_ParseFormat_chrono(benchmark::State& state) {
  // DD.MM.YYYY hh:mm:ss.ttt: widths, then whether a separator follows; fields in text order.
  static constexpr int widths[14] = {2, 2, 4, 2, 2, 2, 3, 1, 1, 1, 1, 1, 1, 0};
  static constexpr int order[7] = {2, 1, 0, 3, 4, 5, 6};
  const auto& v = Moments();
  std::size_t i = 0;
  for (auto _ : state) {
    const auto t = ChronoRead(v[i++ % kMoments].formatted, widths, order);
    benchmark::DoNotOptimize(t);
  }
  state.SetItemsProcessed(state.iterations());
}

// --- The calendar -------------------------------------------------------------------------------

void BM_JulianToDate_KvTime(benchmark::State& state) {
  long jul = KvDate2Julian(1970, 1, 1);
  for (auto _ : state) {
    long y, m, d;
    KvJulian2Date(jul++ & 0xFFFFF, &y, &m, &d);
    benchmark::DoNotOptimize(y + m + d);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_JulianToDate_chrono(benchmark::State& state) {
  long n = 0;
  for (auto _ : state) {
    const year_month_day ymd{sys_days{days{n++ & 0xFFFFF}}};
    benchmark::DoNotOptimize(static_cast<int>(ymd.year()) + static_cast<unsigned>(ymd.month()) +
                             static_cast<unsigned>(ymd.day()));
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_DateToJulian_KvTime(benchmark::State& state) {
  unsigned n = 0;
  for (auto _ : state) {
    ++n;
    benchmark::DoNotOptimize(KvDate2Julian(1970 + (n & 63), 1 + n % 12, 1 + n % 28));
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_DateToJulian_chrono(benchmark::State& state) {
  unsigned n = 0;
  for (auto _ : state) {
    ++n;
    const sys_days day{year{static_cast<int>(1970 + (n & 63))} / month{1 + n % 12} / (1 + n % 28)};
    benchmark::DoNotOptimize(day);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_SortableBuffer_KvTime)->Name("SortableBuffer/KvTime");
BENCHMARK(BM_SortableBuffer_strftime)->Name("SortableBuffer/strftime");
BENCHMARK(BM_SortableBuffer_gmtime_strftime)->Name("SortableBuffer/gmtime+strftime");
BENCHMARK(BM_SortableBuffer_chrono)->Name("SortableBuffer/chrono+snprintf");
BENCHMARK(BM_SortableString_KvTime)->Name("SortableString/KvTime");
BENCHMARK(BM_SortableString_strftime)->Name("SortableString/strftime");
BENCHMARK(BM_FormatString_KvTime)->Name("FormatString/KvTime");
BENCHMARK(BM_FormatString_strftime)->Name("FormatString/strftime");
BENCHMARK(BM_FormatString_gmtime_strftime)->Name("FormatString/gmtime+strftime");
BENCHMARK(BM_ParseSortable_KvTime)->Name("ParseSortable/KvTime");
BENCHMARK(BM_ParseSortable_strptime)->Name("ParseSortable/strptime+timegm");
BENCHMARK(BM_ParseSortable_chrono)->Name("ParseSortable/from_chars+chrono");
BENCHMARK(BM_ParseFormat_KvTime)->Name("ParseFormat/KvTime");
BENCHMARK(BM_ParseFormat_strptime)->Name("ParseFormat/strptime+timegm");
BENCHMARK(BM_ParseFormat_chrono)->Name("ParseFormat/from_chars+chrono");
BENCHMARK(BM_JulianToDate_KvTime)->Name("JulianToDate/KvTime");
BENCHMARK(BM_JulianToDate_chrono)->Name("JulianToDate/chrono");
BENCHMARK(BM_DateToJulian_KvTime)->Name("DateToJulian/KvTime");
BENCHMARK(BM_DateToJulian_chrono)->Name("DateToJulian/chrono");

}  // namespace

int main(int argc, char** argv) {
  // A large arena: only address space until a class needs it.
  KvGranularity::_AllocMem(std::size_t{1} << 30);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kvd::bench::PeerRatioReporter reporter("KvTime / peer", {{"KvTime", ""}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
