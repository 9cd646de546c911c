// kvd check and kvd dump DIR FAMILY: the tables of a directory as the library's families see them.
#include <sys/stat.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame/adapt.h"
#include "frame/family.h"
#include "frame/kernel.h"
#include "include/kvd_directory.h"
#include "platform/file.h"
#include "tools/kvd/commands.h"
#include "tools/kvd/record_out.h"
#include "tools/kvd/text_out.h"

namespace kvd::tool {
namespace {

using frame::Column;
using frame::Conv;
using frame::Family;

// The directory as the library spells directories: with a trailing separator.
std::string AsDirectory(std::string dir) {
  if (!dir.empty() && dir.back() != '/' && dir.back() != '\\') dir += '/';
  return dir;
}

std::string TableFile(const std::string& dir, const Family& f) { return frame::JoinPath(dir.c_str(), f.def().db_name, ".DBF"); }

// A whole number of a member of 1, 2 or 4 bytes.
long long Whole(const char* m, std::size_t size, bool is_signed) {
  if (size == 1) return is_signed ? static_cast<long long>(static_cast<signed char>(*m)) : static_cast<unsigned char>(*m);
  if (size == 2) {
    std::uint16_t v;
    std::memcpy(&v, m, 2);
    return is_signed ? static_cast<long long>(static_cast<std::int16_t>(v)) : static_cast<long long>(v);
  }
  std::uint32_t v;
  std::memcpy(&v, m, 4);
  return is_signed ? static_cast<long long>(static_cast<std::int32_t>(v)) : static_cast<long long>(v);
}

// A member of a fetched record as text (UTF-8).
std::string MemberText(const Column& c, const char* rec) {
  const char* m = rec + c.offset;
  char buf[48];
  switch (c.conv) {
    case Conv::kText: return Cp1252ToUtf8(std::string_view(m, strnlen(m, c.size)));
    case Conv::kChar: return Cp1252ToUtf8(std::string_view(m, *m ? 1 : 0));
    case Conv::kInt:
    case Conv::kFlagTF: {
      int v;
      std::memcpy(&v, m, sizeof v);
      std::snprintf(buf, sizeof buf, "%d", v);
      return buf;
    }
    case Conv::kInt32: {
      std::int32_t v;
      std::memcpy(&v, m, sizeof v);
      std::snprintf(buf, sizeof buf, "%" PRId32, v);
      return buf;
    }
    case Conv::kSigned:
    case Conv::kUnsigned:
    case Conv::kRaw16:
    case Conv::kLetter:
    case Conv::kTime:
      std::snprintf(buf, sizeof buf, "%lld", Whole(m, c.size, c.conv == Conv::kSigned || c.conv == Conv::kTime));
      return buf;
    case Conv::kHex: std::snprintf(buf, sizeof buf, "%llx", Whole(m, c.size, false)); return buf;
    case Conv::kFloat: {
      float v;
      std::memcpy(&v, m, sizeof v);
      std::snprintf(buf, sizeof buf, "%g", static_cast<double>(v));
      return buf;
    }
    case Conv::kCode: {
      int v;
      std::memcpy(&v, m, sizeof v);
      const char letter = c.codes->to_letter(v);
      return std::string(1, letter);
    }
    case Conv::kSkip: break;  // no member: not shown
  }
  return "";
}

// Numbers stand bare in JSON; hexadecimal masks are texts there.
bool IsNumber(const Column& c) {
  switch (c.conv) {
    case Conv::kInt:
    case Conv::kInt32:
    case Conv::kFlagTF:
    case Conv::kSigned:
    case Conv::kUnsigned:
    case Conv::kRaw16:
    case Conv::kLetter:
    case Conv::kTime:
    case Conv::kFloat: return true;
    default: return false;
  }
}

}  // namespace

// kvd dump DIR FAMILY: every record through the family's cursor, as the family's record holds it.
int DumpFamily(const std::string& dir_arg, const std::string& name, Format fmt) {
  const Family* f = frame::FindFamily(name.c_str());
  if (f == nullptr) {
    std::fprintf(stderr, "kvd: no family '%s'; known:", name.c_str());
    for (const Family* k : frame::AllFamilies()) std::fprintf(stderr, " %s", k->def().name);
    std::fputc('\n', stderr);
    return 1;
  }
  const std::string dir = AsDirectory(dir_arg);
  // A dump only looks: the family's cursor would make a missing table, so ask first.
  if (!platform::FileExists(TableFile(dir, *f))) {
    std::fprintf(stderr, "kvd: %s has no table %s\n", dir.c_str(), f->def().db_name);
    return 1;
  }
  _SELECT_SD* s = SelectDir(dir.c_str(), 'K');
  _CURSOR_SD* c = nullptr;
  const long status = frame::FamilyOpenCursor(*f, s, nullptr, &c, 0);
  if (status != KVD_S_OK) {
    std::fprintf(stderr, "kvd: %s: status %ld %s\n", f->def().db_name, status, frame::StatusText(static_cast<int>(status)));
    Unselect(s);
    return 1;
  }
  const std::size_t n = f->def().column_count;
  std::string out;
  // The columns a member holds, in the table's order.
  std::vector<const Column*> shown;
  for (std::size_t i = 0; i < n; ++i)
    if (f->column(static_cast<int>(i)).conv != Conv::kSkip) shown.push_back(&f->column(static_cast<int>(i)));
  if (fmt == Format::kCsv || fmt == Format::kText) {
    for (std::size_t i = 0; i < shown.size(); ++i) {
      if (i) out += fmt == Format::kCsv ? "," : "\t";
      out += shown[i]->name;
    }
    out += '\n';
  } else {
    out += "[";
  }
  std::vector<char> rec(frame::RecordSize(*f));
  int count = 0;
  while (frame::FamilyFetch(*f, c, rec.data(), frame::Fill::kFull) == KVD_S_OK) {
    if (fmt == Format::kJson) out += count ? ",\n {" : "\n {";
    for (std::size_t i = 0; i < shown.size(); ++i) {
      const Column& col = *shown[i];
      const std::string v = MemberText(col, rec.data());
      if (fmt == Format::kJson) {
        out += (i ? ", " : "") + JsonString(col.name) + ": " + (IsNumber(col) ? v : JsonString(v));
      } else {
        if (i) out += fmt == Format::kCsv ? "," : "\t";
        out += fmt == Format::kCsv ? CsvField(v) : v;
      }
    }
    out += fmt == Format::kJson ? "}" : "\n";
    ++count;
  }
  if (fmt == Format::kJson) out += count ? "\n]\n" : "]\n";
  std::fputs(out.c_str(), stdout);
  frame::FamilyCloseCursor(c);
  Unselect(s);
  return 0;
}

// kvd check DIR: every family's table in the directory against its definition, without changing a
// file. A table that differs is adapted by the library the next time it is opened.
int CmdCheck(const Args& args) {
  if (args.size() != 1) return UsageError("usage: kvd check DIR\n");
  const std::string dir = AsDirectory(args[0]);
  if (!platform::DirectoryExists(dir)) {
    std::fprintf(stderr, "kvd: %s is no directory\n", dir.c_str());
    return 1;
  }
  int differing = 0, unreadable = 0;
  for (const Family* f : frame::AllFamilies()) {
    const std::string file = TableFile(dir, *f);
    if (!platform::FileExists(file)) {
      std::printf("%-14s %-10s missing (made on first use)\n", f->def().db_name, f->def().name);
      continue;
    }
    CODE4 code;
    code4initLow(&code, nullptr, 0, 0, 0);
    code.autoOpen = 0;
    code.errOpen = 0;
    code.readOnly = 1;
    DATA4St* d = d4open(&code, file.c_str());
    if (d == nullptr) {
      std::printf("%-14s %-10s cannot be opened: %s\n", f->def().db_name, f->def().name, error4lastDetail(&code));
      ++unreadable;
      code4initUndo(&code);
      continue;
    }
    Data4 data(d);
    std::vector<FIELD4INFO> wanted(f->fields(), f->fields() + f->def().column_count);
    if (!frame::StructureDiffers(data, wanted)) {
      std::printf("%-14s %-10s in order (%ld records)\n", f->def().db_name, f->def().name, d4recCount(d));
    } else {
      ++differing;
      std::printf("%-14s %-10s differs; adapted on its next open:\n", f->def().db_name, f->def().name);
      for (const FIELD4INFO& w : wanted) {
        FIELD4St* have = d4field(d, w.name);
        if (have == nullptr) {
          std::printf("    %-10s missing, wanted %c %u.%u\n", w.name, static_cast<char>(w.type), w.len, w.dec);
        } else if (f4type(have) != w.type || f4len(have) != w.len || f4decimals(have) != w.dec) {
          std::printf("    %-10s is %c %lu.%d, wanted %c %u.%u\n", w.name, static_cast<char>(f4type(have)), f4len(have),
                      f4decimals(have), static_cast<char>(w.type), w.len, w.dec);
        }
      }
      for (short j = 1; j <= d4numFields(d); ++j) {
        const char* have = f4name(d4fieldJ(d, j));
        bool known = false;
        for (const FIELD4INFO& w : wanted) known = known || strcasecmp(w.name, have) == 0;
        if (!known) std::printf("    %-10s not in the definition: dropped by the adaption\n", have);
      }
    }
    d4close(d);
    code4initUndo(&code);
  }
  return differing || unreadable ? 3 : 0;
}

int WriteDemoVersion(const std::string& dir_arg, bool announce) {
  const std::string dir = AsDirectory(dir_arg);
  if (!platform::DirectoryExists(dir) && !platform::MakeDirectory(dir).ok()) {
    std::fprintf(stderr, "kvd: cannot make the directory %s\n", dir.c_str());
    return 1;
  }
  _SELECT_SD* s = SelectDir(dir.c_str(), 'K');
  long bad = 0;
  struct Fig {
    const char* name;
    const char* descr;
    int32_t ulx, uly, lrx, lry;
    int params;
    bool controls;
  } figs[] = {
      {"VALVE", "Valve, two-way", 0, 0, 40, 40, 3, true},
      {"PUMP", "Centrifugal pump", 0, 0, 64, 48, 5, true},
      {"TANK", "Tank with level", 0, 0, 80, 160, 2, false},
      {"PIPE", "Pipe segment", 0, 0, 100, 8, 0, false},
  };
  for (const Fig& f : figs) {
    _DIRFIG_REC r{};
    std::snprintf(r.szName, sizeof r.szName, "%s", f.name);
    std::snprintf(r.szDescr, sizeof r.szDescr, "%s", f.descr);
    std::snprintf(r.szFilename, sizeof r.szFilename, "F_%s.DBF", f.name);
    r.lUlx = f.ulx;
    r.lUly = f.uly;
    r.lLrx = f.lrx;
    r.lLry = f.lry;
    r.nParamcnt = f.params;
    r.nBgColor = 7;
    r.nFrameColor = 0;
    r.fHasControls = f.controls;
    r.lTarResX = 1280;
    r.lTarResY = 1024;
    bad += DirfigU(s, &r) != KVD_S_OK;
  }
  // Access sets: two entered by hand, two imported (a write cursor for the letters "I").
  for (const char* name : {"OPERATOR", "ENGINEER"}) {
    _DIRAS_REC r{};
    std::snprintf(r.szName, sizeof r.szName, "%s", name);
    std::snprintf(r.szDescr, sizeof r.szDescr, "%s access", name);
    const long st = DirAsI(s, &r);
    bad += st != KVD_S_OK && st != KVD_S_NOT_FOUND;  // 1: there already
  }
  _CURSOR_SD* c = nullptr;
  if (DirAsOCAccess(s, const_cast<char*>("I"), &c, 1) == KVD_S_OK) {
    for (const char* name : {"SCADA", "REMOTE"}) {
      _DIRAS_REC r{};
      std::snprintf(r.szName, sizeof r.szName, "%s", name);
      std::snprintf(r.szDescr, sizeof r.szDescr, "imported from %s", name);
      bad += DirAsGaWC(c, &r) != KVD_S_OK;
    }
    DirAsCC(c);
  } else {
    ++bad;
  }
  Unselect(s);
  if (bad != 0) {
    std::fprintf(stderr, "kvd: %ld writes of the demo plant failed\n", bad);
    return 1;
  }
  if (announce) std::printf("demo version written to %s: _DIRFIG.DBF (4 figures), _DIRAS.DBF (4 access sets)\n", dir.c_str());
  return 0;
}

}  // namespace kvd::tool
