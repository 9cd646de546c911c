// Shared by the table tests: a version directory of its own, records filled with little typing,
// the rows of a table as the engine sees them, and a writer for the read-only families.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame/family.h"
#include "include/kvd_dataobj.h"
#include "include/kvd_user.h"
#include "tests/frame/frame_test_util.h"

namespace kvd::test {

template <std::size_t N>
void Put(char (&member)[N], const char* text) {
  std::snprintf(member, N, "%s", text);
}

// A version directory with its selection.
class Version : public ::testing::Test {
 protected:
  Plant plant_;
  std::string dir_ = plant_.MakeDir("v1");
  _SELECT_SD* sel_ = SelectDir(dir_.c_str(), 'T');
  ~Version() override { Unselect(sel_); }

  // Rows through a family's write cursor: for the families no exported call writes (measuring
  // points, sections, jobs), as the programs that fill those tables would.
  template <class Rec>
  void WriteRows(const char* family, std::vector<Rec> rows) {
    const frame::Family* f = frame::FindFamily(family);
    ASSERT_NE(f, nullptr) << family;
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(frame::FamilyOpenCursor(*f, sel_, nullptr, &c, 1), 0) << family;
    for (Rec& r : rows) ASSERT_EQ(frame::FamilyWrite(*f, c, &r), 0) << family;
    frame::FamilyCloseCursor(c);
  }

  // The text of column `field` of every record of a table, in record order, as stored.
  std::vector<std::string> Raw(const std::string& dir, const char* table, const char* field) {
    Engine e;
    std::vector<std::string> out;
    DATA4St* d = d4open(&e.code, (dir + table).c_str());
    EXPECT_NE(d, nullptr) << table;
    if (d == nullptr) return out;
    FIELD4St* f = d4field(d, field);
    EXPECT_NE(f, nullptr) << field;
    for (int r = d4top(d); f != nullptr && r == 0 && !d4eof(d); r = d4skip(d, 1))
      if (!d4deleted(d)) out.emplace_back(f4ptr(f), f4len(f));
    d4close(d);
    return out;
  }
  std::vector<std::string> Raw(const char* table, const char* field) { return Raw(dir_, table, field); }
};

inline _MP_REC Point(const char* id, char binana = 'A', uint16_t obj = 1) {
  _MP_REC r{};
  Put(r.szPointId, id);
  std::snprintf(r.szDescr, sizeof r.szDescr, "point %s", id);
  r.chObjType = binana;
  r.usObjId = obj;
  r.vfmt = _FLOAT;
  return r;
}

inline _PO_REC Process(const char* id, char type = 'A') {
  _PO_REC r{};
  Put(r.szPoId, id);
  std::snprintf(r.szPoDescr, sizeof r.szPoDescr, "object %s", id);
  r.chType = type;
  r.vfmt = _SIGNED;
  return r;
}

inline _SO_REC System(const char* id, char access = 'E') {
  _SO_REC r{};
  Put(r.szSoId, id);
  std::snprintf(r.szSoText, sizeof r.szSoText, "text of %s", id);
  r.chAccess = access;
  r.vfmt = _UNSIGNED;
  return r;
}

inline _REF_REC Reference(const char* id, const char* to, char access = 'E') {
  _REF_REC r{};
  Put(r.szId, id);
  Put(r.szRefId, to);
  std::snprintf(r.szDescr, sizeof r.szDescr, "refers to %s", to);
  r.chAccess = access;
  return r;
}

}  // namespace kvd::test
