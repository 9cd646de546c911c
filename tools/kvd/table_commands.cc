// kvd info, dump and demo: a table as a person wants to see it.
#include <cstdio>
#include <string>

#include "engine/d4all.h"
#include "tools/kvd/commands.h"
#include "tools/kvd/reader.h"
#include "tools/kvd/record_out.h"
#include "tools/kvd/tags.h"

namespace kvd::tool {
namespace {

const char* VersionName(int v) {
  switch (v) {
    case 0x03: return "dBASE III / FoxPro, no memo";
    case 0x83: return "dBASE III with .DBT memo";
    case 0xF5: return "FoxPro 2.x with .FPT memo";
    case 0x30: return "Visual FoxPro";
    case 0x31: return "Visual FoxPro with autoincrement";
    case 0x32: return "Visual FoxPro with varchar";
    case 0x04: return "dBASE IV";
    case 0x8B: return "dBASE IV with .DBT memo";
    default: return "unknown";
  }
}

}  // namespace

int CmdInfo(const Args& args) {
  if (args.size() != 1) return UsageError("usage: kvd info TABLE\n");
  Reader r;
  if (!r.Open(args[0])) return 1;
  DATA4St* d = r.data();
  long deleted = 0;
  for (d4top(d); !d4eof(d); d4skip(d, 1)) deleted += d4deleted(d);
  std::printf("table     %s\n", d4fileName(d));
  std::printf("version   0x%02X (%s)\n", d4versionByte(d), VersionName(d4versionByte(d)));
  std::printf("records   %ld (%ld deleted)\n", d4recCount(d), deleted);
  std::printf("layout    header %u bytes, record %lu bytes\n", d4headerLen(d), d4recWidth(d));
  if (*d4memoFileName(d))
    std::printf("memo      %s (blocks of %u bytes)\n", d4memoFileName(d), d4memoBlockSize(d));
  else
    std::printf("memo      none\n");
  std::printf("fields    %d\n", d4numFields(d));
  std::printf("  %3s  %-10s  %-4s  %4s  %3s\n", "#", "NAME", "TYPE", "LEN", "DEC");
  for (short j = 1; j <= d4numFields(d); ++j) {
    FIELD4St* f = d4fieldJ(d, j);
    std::printf("  %3d  %-10s  %-4c  %4lu  %3d\n", j, f4name(f), f4type(f), f4len(f), f4decimals(f));
  }
  PrintIndex(r);
  return 0;
}

int CmdDump(const Args& args) {
  const char* usage = "usage: kvd dump TABLE [--csv|--json] [--tag NAME]\n       kvd dump DIR FAMILY [--csv|--json]\n";
  Format fmt = Format::kText;
  std::string table, tag, family;
  bool by_tag = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (ParseFormat(a, &fmt)) continue;
    if (a == "--tag" || a.rfind("--tag=", 0) == 0) {
      if (by_tag || (a == "--tag" && i + 1 == args.size())) return UsageError(usage);
      tag = a == "--tag" ? args[++i] : a.substr(6);
      by_tag = true;
    } else if (table.empty() && a.rfind("--", 0) != 0) {
      table = a;
    } else if (family.empty() && a.rfind("--", 0) != 0) {
      family = a;
    } else {
      return UsageError(usage);
    }
  }
  if (table.empty() || (by_tag && tag.empty())) return UsageError(usage);
  if (!family.empty()) return by_tag ? UsageError(usage) : DumpFamily(table, family, fmt);
  Reader r;
  if (!r.Open(table)) return 1;
  DATA4St* d = r.data();
  if (by_tag) {
    TAG4St* t = r.Tag(tag);
    if (!t) return 1;
    d4tagSelect(d, t);  // the walk below follows the tag, and its filter
  }
  RecordWriter out(d, fmt);
  for (int rc = d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, 1)) out.Record();
  out.Finish();
  if (r.code()->errorCode < 0) {
    std::fprintf(stderr, "kvd: %s\n", r.LastError().c_str());
    return 1;
  }
  return 0;
}

int CmdDemo(const Args& args) {
  if (args.size() != 1) return UsageError("usage: kvd demo TABLE | kvd demo DIR/\n");
  const std::string& target = args[0];
  if (!target.empty() && (target.back() == '/' || target.back() == '\\')) return DemoPlant(target);
  CODE4 code;
  code4initLow(&code, nullptr, 0, 0, 0);
  code.safety = 0;
  code.errOpen = 1;
  const FIELD4INFO fields[] = {
      {"POINTID", 'C', 22, 0, 0}, {"DESCR", 'C', 30, 0, 0}, {"UNIT", 'C', 8, 0, 0},
      {"LOWER", 'N', 9, 3, 0},    {"UPPER", 'N', 9, 3, 0},  {"ACTIVE", 'L', 1, 0, 0},
      {"CREATED", 'D', 8, 0, 0},  {"NOTE", 'M', 10, 0, 0},  {nullptr, 0, 0, 0, 0}};
  struct Row {
    const char* id;
    const char* descr;
    const char* unit;
    double lo, hi;
    bool active;
    const char* note;
  };
  const Row rows[] = {
      {"BOILER1.TEMP", "Boiler 1 water temperature", "\xB0" "C", 10, 120, true, "Alarm above 95 \xB0" "C."},
      {"BOILER1.PRESS", "Boiler 1 pressure", "bar", 0, 16, true, ""},
      {"PUMP3.SPEED", "Feed pump 3 speed", "rpm", 0, 2950, true, "Runs only with valve V12 open."},
      {"TANK2.LEVEL", "Tank 2 level", "m", 0, 7.5, true, ""},
      {"OLD.SENSOR", "Removed sensor", "", 0, 0, false, "Taken out of service."},
      {"FLOW.MAIN", "Main line flow", "m\xB3/h", 0, 850.25, true, ""},
  };
  // The production index, kept current from the first append on.
  const TAG4INFO tags[] = {{"POINTID", "POINTID", nullptr, e4unique, 0},
                           {"DESCR", "UPPER(DESCR)", nullptr, 0, 0},
                           {"UNIT", "UNIT", ".NOT. DELETED()", 0, 0},
                           {"SPAN", "UPPER - LOWER", nullptr, 0, 1},
                           {nullptr, nullptr, nullptr, 0, 0}};
  DATA4St* d = d4create(&code, args[0].c_str(), fields, tags);
  if (!d) {
    std::fprintf(stderr, "kvd: cannot create %s: %s (%s)\n", args[0].c_str(), error4text(&code, code.errorCode),
                 error4lastDetail(&code));
    code4initUndo(&code);
    return 1;
  }
  char today[9];
  date4today(today);
  int count = 0;
  for (const Row& row : rows) {
    d4appendStart(d, 0);
    d4blank(d);
    f4assign(d4field(d, "POINTID"), row.id);
    f4assign(d4field(d, "DESCR"), row.descr);
    f4assign(d4field(d, "UNIT"), row.unit);
    f4assignDouble(d4field(d, "LOWER"), row.lo);
    f4assignDouble(d4field(d, "UPPER"), row.hi);
    f4assignChar(d4field(d, "ACTIVE"), row.active ? 'T' : 'F');
    f4assign(d4field(d, "CREATED"), today);
    f4memoAssign(d4field(d, "NOTE"), row.note);
    if (!row.active) d4delete(d);
    if (d4append(d) == 0) ++count;
  }
  const int rc = d4close(d);
  std::string names;
  for (const TAG4INFO* t = tags; t->name; ++t) names += std::string(names.empty() ? "" : ", ") + t->name;
  std::printf("wrote %d measuring points to %s, indexed by %s\n", count, args[0].c_str(), names.c_str());
  code4initUndo(&code);
  return rc == 0 && count == 6 ? 0 : 1;
}

}  // namespace kvd::tool
