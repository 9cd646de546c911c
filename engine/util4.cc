// Small utilities of the engine's interface: file name extensions and dates.
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/d4all.h"
#include "platform/env.h"

extern "C" {

int u4nameExt(char* name, int size, const char* ext, int doReplace) {
  if (!name || !ext || size <= 0) return e4parm;
  std::string n(name);
  std::string e(ext);
  if (!e.empty() && e[0] == '.') e.erase(0, 1);
  // The extension belongs to the last name part: a dot in a directory name does not count.
  const std::size_t sep = n.find_last_of("\\/:");
  const std::size_t dot = n.rfind('.');
  const bool has_ext = dot != std::string::npos && (sep == std::string::npos || dot > sep);
  if (has_ext) {
    if (!doReplace) return 0;
    n.erase(dot);
  }
  n += '.';
  n += e;
  if (n.size() + 1 > static_cast<std::size_t>(size)) return e4len;
  std::memcpy(name, n.c_str(), n.size() + 1);
  return 0;
}

void date4today(char* result) {
  if (!result) return;
  const kvd::platform::LocalTime t = kvd::platform::NowLocal();
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d%02d%02d", t.year % 10000, t.month % 100, t.day % 100);
  std::memcpy(result, buf, 9);
  result[8] = 0;
}

void date4format(const char* date, char* result, const char* picture) {
  if (!result) return;
  if (!picture) picture = "";
  const std::size_t plen = std::strlen(picture);
  bool blank = !date || std::strlen(date) < 8;
  for (int i = 0; !blank && i < 8; ++i)
    if (date[i] < '0' || date[i] > '9') blank = true;
  if (blank) {
    std::memset(result, ' ', plen);
    result[plen] = 0;
    return;
  }
  static const char* const kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                        "July",    "August",   "September", "October", "November", "December"};
  const int month = (date[4] - '0') * 10 + (date[5] - '0');
  std::string out;
  for (std::size_t i = 0; i < plen;) {
    const char c = picture[i];
    std::size_t run = 1;
    while (i + run < plen && picture[i + run] == c) ++run;
    if (c == 'C' || c == 'c') {
      // Century digits: the first two of the year.
      for (std::size_t k = 0; k < run; ++k) out += k < 2 ? date[k] : c;
    } else if (c == 'Y' || c == 'y') {
      // "YY" the last two digits of the year, "YYYY" all four.
      const std::size_t from = run >= 4 ? 0 : 2;
      for (std::size_t k = 0; k < run; ++k) out += from + k < 4 ? date[from + k] : c;
    } else if (c == 'M' || c == 'm') {
      if (run <= 2) {
        for (std::size_t k = 0; k < run; ++k) out += date[4 + k + (2 - run)];
      } else {
        std::string name = month >= 1 && month <= 12 ? kMonths[month - 1] : "";
        name.resize(run, ' ');
        out += name;
      }
    } else if (c == 'D' || c == 'd') {
      for (std::size_t k = 0; k < run; ++k) out += date[6 + k + (run >= 2 ? 0 : 1)];
    } else {
      out.append(run, c);
    }
    i += run;
  }
  std::memcpy(result, out.c_str(), out.size() + 1);
}

}  // extern "C"
