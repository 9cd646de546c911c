// The index side of kvd: the tag list of kvd info, and kvd seek.
#include <cstdio>
#include <string>

#include "engine/d4all.h"
#include "platform/file.h"
#include "tools/kvd/commands.h"
#include "tools/kvd/reader.h"
#include "tools/kvd/record_out.h"
#include "tools/kvd/tags.h"
#include "tools/kvd/text_out.h"

namespace kvd::tool {

namespace {

std::string Flags(DATA4St* d, TAG4St* t) {
  std::string flags;
  auto add = [&flags](const char* word) { flags += std::string(flags.empty() ? "" : " ") + word; };
  if (t == d4tagDefault(d)) add("default");
  if (t4unique(t)) add("unique");
  if (t4descending(t)) add("descending");
  return flags;
}

}  // namespace

void PrintIndex(Reader& r) {
  DATA4St* d = r.data();
  if (!r.index_problem().empty()) {
    std::printf("index     cannot be read: %s\n", r.index_problem().c_str());
    return;
  }
  if (!d4tagDefault(d)) {
    std::printf("index     none\n");
    return;
  }
  int count = 0;
  for (TAG4St* t = d4tagNext(d, nullptr); t; t = d4tagNext(d, t)) ++count;
  // The production index is open already; opening it again hands back that one.
  std::printf("index     %s (%d tag%s)\n", i4fileName(i4open(d, nullptr)), count, count == 1 ? "" : "s");
  std::printf("  %3s  %-10s  %3s  %-25s  %s\n", "#", "TAG", "LEN", "FLAGS", "KEY EXPRESSION [FOR FILTER]");
  int j = 0;
  for (TAG4St* t = d4tagNext(d, nullptr); t; t = d4tagNext(d, t)) {
    std::string key = t4expr(t);
    if (*t4filter(t)) key += std::string(" FOR ") + t4filter(t);
    std::printf("  %3d  %-10s  %3d  %-25s  %s\n", ++j, t4alias(t), t4keyLen(t), Flags(d, t).c_str(), key.c_str());
  }
}

int CmdSeek(const Args& args) {
  const char* usage = "usage: kvd seek TABLE TAG KEY [--csv|--json]\n       kvd seek DIR FAMILY KEY [KEY2] [--csv|--json]\n";
  Format fmt = Format::kText;
  Args words;
  for (const std::string& a : args)
    if (!ParseFormat(a, &fmt)) words.push_back(a);
  if (words.size() >= 3 && platform::DirectoryExists(words[0]))
    return SeekFamily(words[0], words[1], Args(words.begin() + 2, words.end()), fmt);
  if (words.size() != 3) return UsageError(usage);
  const std::string& given = words[2];
  std::string key;
  if (!Utf8ToCp1252(given, &key)) {
    std::fprintf(stderr, "kvd: the key '%s' has a character that tables (Windows-1252) cannot hold\n", given.c_str());
    return 2;
  }

  Reader r;
  if (!r.Open(words[0])) return 1;
  DATA4St* d = r.data();
  TAG4St* t = r.Tag(words[1]);
  if (!t) return 1;
  d4tagSelect(d, t);
  const int rc = d4seek(d, key.c_str());
  if (rc < 0) {
    std::fprintf(stderr, "kvd: seek in tag %s: %s\n", t4alias(t), r.LastError().c_str());
    return 1;
  }
  const bool found = rc == r4success || rc == r4found;
  RecordWriter out(d, fmt);
  if (rc != r4eof) out.Record();
  out.Finish();
  std::fflush(stdout);

  // The outcome: under the record for a person, on standard error when the output is data.
  FILE* say = fmt == Format::kText ? stdout : stderr;
  if (found)
    std::fprintf(say, "found '%s' in tag %s at record %ld\n", given.c_str(), t4alias(t), d4recNo(d));
  else if (rc == r4eof)
    std::fprintf(say, "not found: '%s' is not in tag %s, and no key follows it\n", given.c_str(), t4alias(t));
  else
    std::fprintf(say, "not found: '%s' is not in tag %s; record %ld holds the key that follows it\n", given.c_str(),
                 t4alias(t), d4recNo(d));
  return found ? 0 : rc == r4eof ? 4 : 3;
}

}  // namespace kvd::tool
