// kvd info, dump and demo: a table as a person wants to see it.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "tools/kvd/commands.h"
#include "tools/kvd/text_out.h"

namespace kvd::tool {
namespace {

// One engine state for one command, opened read only and shared.
class Reader {
 public:
  Reader() {
    code4initLow(&code_, nullptr, 0, 0, 0);
    code_.autoOpen = 0;
    code_.errOpen = 1;
    code_.readOnly = 1;
  }
  ~Reader() {
    d4close(data_);
    code4initUndo(&code_);
  }
  // Opens the table; on failure says why on standard error and returns false.
  bool Open(const std::string& name) {
    data_ = d4open(&code_, name.c_str());
    if (data_) return true;
    std::fprintf(stderr, "kvd: %s is not a readable table: %s", name.c_str(), error4text(&code_, code_.errorCode));
    const char* detail = error4lastDetail(&code_);
    if (*detail) std::fprintf(stderr, " (%s)", detail);
    std::fputc('\n', stderr);
    return false;
  }
  DATA4St* data() { return data_; }
  CODE4* code() { return &code_; }

 private:
  CODE4 code_;
  DATA4St* data_ = nullptr;
};

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

bool IsMemo(FIELD4St* f) {
  const int t = f4type(f);
  return t == 'M' || t == 'G' || t == 'P' || (t == 'B' && f4len(f) == 10);
}

enum class Format { kText, kCsv, kJson };

// A field's value as display text (UTF-8), and whether it is empty/null.
std::string Value(FIELD4St* f, bool* null) {
  const int t = f4type(f);
  *null = false;
  if (IsMemo(f)) {
    return Cp1252ToUtf8(std::string_view(f4memoPtr(f), f4memoLen(f)));
  }
  if (t == 'I' || t == 'Y' || (t == 'B' && f4len(f) == 8)) {
    char buf[64];
    std::snprintf(buf, sizeof buf, t == 'I' ? "%.0f" : "%.10g", f4double(f));
    return buf;
  }
  std::string_view raw(f4ptr(f), f4len(f));
  std::string_view v = (t == 'N' || t == 'F') ? Trim(raw) : TrimRight(raw);
  if (t == 'D' && v.size() == 8) {
    return std::string(v.substr(0, 4)) + "-" + std::string(v.substr(4, 2)) + "-" + std::string(v.substr(6, 2));
  }
  *null = v.empty() && t != 'C';
  if (t == 'L') {
    const char c = raw.empty() ? ' ' : raw[0];
    if (c == 'T' || c == 't' || c == 'Y' || c == 'y') return "true";
    if (c == 'F' || c == 'f' || c == 'N' || c == 'n') return "false";
    *null = true;
    return "";
  }
  return Cp1252ToUtf8(v);
}

bool IsJsonNumber(int type) { return type == 'N' || type == 'F' || type == 'I' || type == 'Y' || type == 'B'; }

}  // namespace

int CmdInfo(const Args& args) {
  if (args.size() != 1) {
    std::fputs("usage: kvd info TABLE\n", stderr);
    return 2;
  }
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
  return 0;
}

int CmdDump(const Args& args) {
  Format fmt = Format::kText;
  std::string table;
  for (const std::string& a : args) {
    if (a == "--csv") fmt = Format::kCsv;
    else if (a == "--json") fmt = Format::kJson;
    else if (table.empty() && a.rfind("--", 0) != 0) table = a;
    else {
      std::fprintf(stderr, "usage: kvd dump TABLE [--csv|--json]\n");
      return 2;
    }
  }
  if (table.empty()) {
    std::fprintf(stderr, "usage: kvd dump TABLE [--csv|--json]\n");
    return 2;
  }
  Reader r;
  if (!r.Open(table)) return 1;
  DATA4St* d = r.data();
  const int n = d4numFields(d);
  std::vector<FIELD4St*> fields;
  for (short j = 1; j <= n; ++j) fields.push_back(d4fieldJ(d, j));

  std::string out;
  if (fmt == Format::kCsv) {
    out = "_RECNO,_DELETED";
    for (FIELD4St* f : fields) out += "," + CsvField(f4name(f));
    out += "\n";
  } else if (fmt == Format::kJson) {
    out = "[";
  } else {
    out = "#";
    for (FIELD4St* f : fields) out += std::string(" | ") + f4name(f);
    out += "\n";
  }
  bool first = true;
  for (int rc = d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
    const long rec = d4recNo(d);
    if (fmt == Format::kCsv) {
      out += std::to_string(rec) + (d4deleted(d) ? ",1" : ",0");
    } else if (fmt == Format::kJson) {
      out += first ? "\n" : ",\n";
      out += "{\"_recno\":" + std::to_string(rec) + ",\"_deleted\":" + (d4deleted(d) ? "true" : "false");
    } else {
      out += std::to_string(rec) + (d4deleted(d) ? "*" : "");
    }
    first = false;
    for (FIELD4St* f : fields) {
      bool null = false;
      const std::string v = Value(f, &null);
      if (fmt == Format::kCsv) {
        out += "," + CsvField(v);
      } else if (fmt == Format::kJson) {
        out += "," + JsonString(f4name(f)) + ":";
        const int t = f4type(f);
        if (null) out += "null";
        else if (t == 'L') out += v;
        else if (IsJsonNumber(t) && !IsMemo(f) && v.find('*') == std::string::npos) out += v;
        else out += JsonString(v);
      } else {
        out += " | " + v;
      }
    }
    out += fmt == Format::kJson ? "}" : "\n";
    if (out.size() > (1u << 16)) {
      std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  }
  if (fmt == Format::kJson) out += first ? "]\n" : "\n]\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
  if (r.code()->errorCode < 0) {
    std::fprintf(stderr, "kvd: %s: %s\n", error4text(r.code(), r.code()->errorCode), error4lastDetail(r.code()));
    return 1;
  }
  return 0;
}

int CmdDemo(const Args& args) {
  if (args.size() != 1) {
    std::fputs("usage: kvd demo TABLE\n", stderr);
    return 2;
  }
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
      {"BOILER1.TEMP", "Boiler 1 water temperature", "\xB0" "C", 0, 120, true, "Alarm above 95 \xB0" "C."},
      {"BOILER1.PRESS", "Boiler 1 pressure", "bar", 0, 16, true, ""},
      {"PUMP3.SPEED", "Feed pump 3 speed", "rpm", 0, 2950, true, "Runs only with valve V12 open."},
      {"TANK2.LEVEL", "Tank 2 level", "m", 0, 7.5, true, ""},
      {"OLD.SENSOR", "Removed sensor", "", 0, 0, false, "Taken out of service."},
      {"FLOW.MAIN", "Main line flow", "m\xB3/h", 0, 850.25, true, ""},
  };
  DATA4St* d = d4create(&code, args[0].c_str(), fields, nullptr);
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
  std::printf("wrote %d measuring points to %s\n", count, args[0].c_str());
  code4initUndo(&code);
  return rc == 0 && count == 6 ? 0 : 1;
}

}  // namespace kvd::tool
