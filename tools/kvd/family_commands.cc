// kvd check and kvd dump DIR FAMILY: the tables of a directory as the library's families see them.
#include <sys/stat.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
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

namespace {

// A family's table in a directory, opened through a cursor of the family in its key order, or the
// exit code after a message.
class FamilyTable {
 public:
  FamilyTable(const std::string& dir_arg, const std::string& name) {
    f_ = frame::FindFamily(name.c_str());
    if (f_ == nullptr) {
      std::fprintf(stderr, "kvd: no family '%s'; known:", name.c_str());
      for (const Family* k : frame::AllFamilies()) std::fprintf(stderr, " %s", k->def().name);
      std::fputc('\n', stderr);
      return;
    }
    const std::string dir = AsDirectory(dir_arg);
    // Only to look: the family's cursor would make a missing table, so ask first.
    if (!platform::FileExists(TableFile(dir, *f_))) {
      std::fprintf(stderr, "kvd: %s has no table %s\n", dir.c_str(), f_->def().db_name);
      return;
    }
    s_ = SelectDir(dir.c_str(), 'K');
    const long status = frame::FamilyOpenCursor(*f_, s_, nullptr, &c_, 0);
    if (status != KVD_S_OK)
      std::fprintf(stderr, "kvd: %s: status %ld %s\n", f_->def().db_name, status, frame::StatusText(static_cast<int>(status)));
  }
  ~FamilyTable() {
    frame::FamilyCloseCursor(c_);
    Unselect(s_);
  }
  FamilyTable(const FamilyTable&) = delete;
  FamilyTable& operator=(const FamilyTable&) = delete;

  bool ok() const { return c_ != nullptr; }
  const Family& family() const { return *f_; }
  _CURSOR_SD* cursor() const { return c_; }

 private:
  const Family* f_ = nullptr;
  _SELECT_SD* s_ = nullptr;
  _CURSOR_SD* c_ = nullptr;
};

// Records of a family as text, CSV or JSON: the columns a member holds, in the table's order.
class FamilyWriter {
 public:
  FamilyWriter(const Family& f, Format fmt) : fmt_(fmt) {
    for (std::size_t i = 0; i < f.def().column_count; ++i)
      if (f.column(static_cast<int>(i)).conv != Conv::kSkip) shown_.push_back(&f.column(static_cast<int>(i)));
    if (fmt_ == Format::kJson) {
      out_ += "[";
      return;
    }
    for (std::size_t i = 0; i < shown_.size(); ++i) {
      if (i) out_ += fmt_ == Format::kCsv ? "," : "\t";
      out_ += shown_[i]->name;
    }
    out_ += '\n';
  }
  void Record(const char* rec) {
    if (fmt_ == Format::kJson) out_ += count_ ? ",\n {" : "\n {";
    for (std::size_t i = 0; i < shown_.size(); ++i) {
      const Column& col = *shown_[i];
      const std::string v = MemberText(col, rec);
      if (fmt_ == Format::kJson) {
        out_ += (i ? ", " : "") + JsonString(col.name) + ": " + (IsNumber(col) ? v : JsonString(v));
      } else {
        if (i) out_ += fmt_ == Format::kCsv ? "," : "\t";
        out_ += fmt_ == Format::kCsv ? CsvField(v) : v;
      }
    }
    out_ += fmt_ == Format::kJson ? "}" : "\n";
    ++count_;
    if (out_.size() > (1u << 16)) Flush();
  }
  void Finish() {
    if (fmt_ == Format::kJson) out_ += count_ ? "\n]\n" : "]\n";
    Flush();
  }

 private:
  void Flush() {
    std::fputs(out_.c_str(), stdout);
    out_.clear();
  }
  Format fmt_;
  std::vector<const Column*> shown_;
  std::string out_;
  int count_ = 0;
};

// A key member of a record from the command line's text: text as given, numbers in decimal.
bool SetKeyMember(const Column& c, const std::string& given, char* rec) {
  char* m = rec + c.offset;
  if (c.conv == Conv::kText) {
    std::string text;
    if (!Utf8ToCp1252(given, &text) || text.size() >= c.size) return false;
    std::memcpy(m, text.c_str(), text.size() + 1);
    return true;
  }
  char* end = nullptr;
  const long long v = std::strtoll(given.c_str(), &end, 10);
  if (end == given.c_str() || *end != '\0') return false;
  std::memcpy(m, &v, std::min(c.size, sizeof v));  // the low bytes: little-endian
  return true;
}

}  // namespace

// kvd dump DIR FAMILY: every record through the family's cursor, as the family's record holds it.
int DumpFamily(const std::string& dir, const std::string& name, Format fmt) {
  FamilyTable t(dir, name);
  if (!t.ok()) return 1;
  std::vector<char> rec(frame::RecordSize(t.family()));
  FamilyWriter out(t.family(), fmt);
  while (frame::FamilyFetch(t.family(), t.cursor(), rec.data(), frame::Fill::kFull) == KVD_S_OK) out.Record(rec.data());
  out.Finish();
  return 0;
}

// kvd seek DIR FAMILY KEY [KEY2]: the record of a key, searched as the family's SCId searches it
// (KEY2: the second number of a two-column key, as the profiles have it). 0 found, 3 not found.
int SeekFamily(const std::string& dir, const std::string& name, const std::vector<std::string>& keys, Format fmt) {
  FamilyTable t(dir, name);
  if (!t.ok()) return 1;
  const Family& f = t.family();
  const bool two = f.def().key_column2 >= 0;
  if (keys.size() != (two ? 2u : 1u)) {
    std::fprintf(stderr, "kvd: the key of %s is %s\n", f.def().name, two ? "two numbers" : "one text");
    return 2;
  }
  std::vector<char> rec(frame::RecordSize(f));
  if (!SetKeyMember(f.column(f.def().key_column), keys[0], rec.data()) ||
      (two && !SetKeyMember(f.column(f.def().key_column2), keys[1], rec.data()))) {
    std::fprintf(stderr, "kvd: '%s' is no key of %s\n", keys[0].c_str(), f.def().name);
    return 2;
  }
  const bool found = frame::FamilySeekCursor(f, t.cursor(), rec.data()) == KVD_S_OK;
  FamilyWriter out(f, fmt);
  if (found) out.Record(rec.data());
  out.Finish();
  std::fflush(stdout);
  FILE* say = fmt == Format::kText ? stdout : stderr;
  std::fprintf(say, found ? "found in %s\n" : "not found in %s\n", f.def().db_name);
  return found ? 0 : 3;
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

int WriteDemoVersion(const std::string& dir_arg, bool announce, bool data_objects, bool boiler) {
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
  if (data_objects && WriteDemoDataObjects(dir, boiler) != 0) return 1;
  if (announce) std::printf("demo version written to %s: _DIRFIG.DBF (4 figures), _DIRAS.DBF (4 access sets)\n", dir.c_str());
  return 0;
}

}  // namespace kvd::tool
