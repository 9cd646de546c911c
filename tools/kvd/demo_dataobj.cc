// The data objects of the demo plant: measuring points with states and limits, process and system
// objects, references, sections, users and profiles in each version, jobs and attributes in each
// project. Written through the library's calls; the tables no call of the library writes (measuring
// points, sections, jobs, attributes: other programs of the suite fill them) through the write
// cursors of their families, as such a program would.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame/family.h"
#include "include/kvd_dataobj.h"
#include "include/kvd_user.h"
#include "tools/kvd/commands.h"

namespace kvd::tool {
namespace {

template <std::size_t N>
void Put(char (&member)[N], const std::string& text) {
  const std::size_t n = text.size() < N ? text.size() : N - 1;
  std::memcpy(member, text.data(), n);
  member[n] = '\0';
}

// A plant section and the machines in it.
struct Area {
  const char* id;     // leads the ids of its objects
  const char* descr;
  const char* station;
  std::vector<const char*> machines;
};

const std::vector<Area> kWaterAreas = {
    {"PS1", "Pump station 1", "PLC PS1", {"P1", "P2", "P3", "P4", "V1"}},
    {"PS2", "Pump station 2", "PLC PS2", {"P1", "P2", "P3", "V1", "V2"}},
    {"FL1", "Filter line 1", "PLC FILTER", {"F1", "F2", "BW1", "V1", "V2"}},
    {"FL2", "Filter line 2", "PLC FILTER", {"F1", "F2", "BW1", "V1", "V2"}},
    {"FL3", "Filter line 3", "PLC FILTER", {"F1", "F2", "BW1", "V1", "V2"}},
    {"RES", "Clear water reservoir", "PLC RES", {"T1", "T2", "P1", "P2", "V1"}},
};
const std::vector<Area> kBoilerAreas = {
    {"B1", "Gas boiler 1", "PLC B1", {"BRN", "FAN", "PMP", "V1", "V2"}},
    {"B2", "Gas boiler 2", "PLC B2", {"BRN", "FAN", "PMP", "V1", "V2"}},
    {"HDR", "Common header", "PLC HDR", {"P1", "P2", "V1", "V2", "V3"}},
    {"GAS", "Gas supply", "PLC GAS", {"V1", "V2", "DET", "FLT", "REG"}},
    {"FW", "Feed water", "PLC FW", {"P1", "P2", "T1", "V1", "DOS"}},
    {"FLUE", "Flue gas", "PLC B1", {"DMP", "FAN", "AN1", "AN2", "STK"}},
};

// An analogue signal of a machine: name, unit, range and its four limits (low-low ... high-high).
struct Analog {
  const char* name;
  const char* descr;
  const char* unit;
  float start, end;
};
const Analog kAnalogs[] = {
    {"FLOW", "flow", "M3H", 0, 800},        {"PRESS", "pressure", "BAR", 0, 16},
    {"TEMP", "temperature", "DEGC", -20, 120}, {"CURR", "motor current", "A", 0, 250},
    {"SPEED", "speed", "RPM", 0, 3000},     {"VIBR", "vibration", "MMS", 0, 25},
    {"POWER", "power", "KW", 0, 400},
};

_MP_STATE_REC State(const char* text, int16_t level, char evl, int16_t block = 0) {
  _MP_STATE_REC s{};
  Put(s.szStatus, text);
  s.sLvl = level;
  s.sBlockGrp = block;
  s.sAaGr = level > 1 ? 1 : 0;
  s.sVaGr = level > 0 ? 1 : 0;
  s.bEvl = static_cast<uint8_t>(evl);
  s.bEvp = static_cast<uint8_t>(level > 1 ? 'P' : ' ');
  s.sDlyIn = level > 1 ? 5 : 0;
  return s;
}

_MP_REC BasePoint(const Area& a, const std::string& id, const std::string& descr, uint16_t obj) {
  _MP_REC r{};
  Put(r.szPointId, id);
  Put(r.szDescr, descr);
  Put(r.szStation, a.station);
  Put(r.szIoAdr, "DB" + std::to_string(obj / 100 + 10) + ".DBW" + std::to_string(obj % 100 * 2));
  Put(r.szSlot, std::string("rack ") + std::to_string(obj % 4 + 1));
  Put(r.szTid, "01");
  Put(r.szGrpAlarm, a.id);
  r.usObjId = obj;
  r.sAcknGrp = 1;
  r.cScanCycle = 1;
  r.vfmt = _FLOAT;
  return r;
}

std::vector<_MP_REC> Points(const std::vector<Area>& areas) {
  std::vector<_MP_REC> out;
  uint16_t obj = 100;
  for (const Area& a : areas) {
    for (const char* m : a.machines) {
      const std::string dev = std::string(a.id) + "." + m;
      // Binary: running and fault, two and three states.
      _MP_REC run = BasePoint(a, dev + ".RUN", dev + " running", obj++);
      run.chObjType = 'B';
      Put(run.szSignal, "BINARY");
      run.vfmt = _UNSIGNED;
      run.bStateCnt = 2;
      run.abcState[0] = State("OFF", 0, '0');
      run.abcState[1] = State("ON", 0, '2');
      out.push_back(run);
      _MP_REC fault = BasePoint(a, dev + ".FAULT", dev + " fault", obj++);
      fault.chObjType = 'B';
      Put(fault.szSignal, "BINARY");
      fault.vfmt = _UNSIGNED;
      fault.bStateCnt = 3;
      fault.abcState[0] = State("OK", 0, '0');
      fault.abcState[1] = State("FAULT", 3, '1', 1);
      fault.abcState[2] = State("MAINT", 1, '2');
      fault.usFlag = 0x0101;
      out.push_back(fault);
      // Analogue: the signals with their limits.
      for (const Analog& an : kAnalogs) {
        _MP_REC p = BasePoint(a, dev + "." + an.name, dev + " " + an.descr, obj++);
        p.chObjType = 'A';
        Put(p.szSignal, "ANALOG");
        Put(p.szUnit, an.unit);
        p.r8RangeStart = an.start;
        p.r8RangeEnd = an.end;
        p.r8SndHys = (an.end - an.start) / 200;
        p.r8LmtHys = (an.end - an.start) / 100;
        p.usScaleGroup = 1;
        p.bStateCnt = 5;
        p.abcState[0] = State("NORMAL", 0, '0');
        p.abcState[1] = State("LOW LOW", 3, '1');
        p.abcState[2] = State("LOW", 2, '2');
        p.abcState[3] = State("HIGH", 2, '2');
        p.abcState[4] = State("HIGH HIGH", 3, '1');
        const float span = an.end - an.start;
        const float at[4] = {0.05f, 0.15f, 0.85f, 0.95f};
        for (int l = 0; l < 4; ++l) p.abcLimit[l].r8Limit = an.start + span * at[l];
        Put(p.szInitVal, "      0.0");
        Put(p.szInitValFlg, "F");
        out.push_back(p);
      }
    }
  }
  return out;
}

// Rows through a family's write cursor; the number that failed.
template <class Rec>
long WriteThrough(const char* family, _SELECT_SD* s, std::vector<Rec>& rows) {
  const frame::Family* f = frame::FindFamily(family);
  _CURSOR_SD* c = nullptr;
  if (f == nullptr || frame::FamilyOpenCursor(*f, s, nullptr, &c, 1) != KVD_S_OK) return 1;
  long bad = 0;
  for (Rec& r : rows) bad += frame::FamilyWrite(*f, c, &r) != KVD_S_OK;
  frame::FamilyCloseCursor(c);
  return bad;
}

}  // namespace

int WriteDemoDataObjects(const std::string& dir, bool boiler) {
  const std::vector<Area>& areas = boiler ? kBoilerAreas : kWaterAreas;
  _SELECT_SD* s = SelectDir(dir.c_str(), 'K');
  long bad = 0;
  std::vector<_MP_REC> points = Points(areas);
  bad += WriteThrough("Mp", s, points);

  // Process objects: a command and a set point per machine.
  for (const Area& a : areas) {
    for (const char* m : a.machines) {
      const std::string dev = std::string(a.id) + "." + m;
      _PO_REC cmd{};
      Put(cmd.szPoId, dev + ".CMD");
      Put(cmd.szPoDescr, dev + " start/stop");
      Put(cmd.szStation, a.station);
      cmd.chType = 'B';
      cmd.vfmt = _UNSIGNED;
      Put(cmd.szIoAdrState, "M" + std::to_string(cmd.szPoId[0] * 7 % 100) + ".0");
      Put(cmd.szIoAdrValue, "Q4.0");
      cmd.usUsrGrp = 2;
      bad += PoU(s, &cmd) != KVD_S_OK;
      _PO_REC sp = cmd;
      Put(sp.szPoId, dev + ".SETP");
      Put(sp.szPoDescr, dev + " set point");
      sp.chType = 'A';
      sp.vfmt = _FLOAT;
      sp.r8RangeStart = 0;
      sp.r8RangeEnd = 100;
      sp.r4NrmGrad = 1.0f;
      sp.r4NrmOffs = 0.0f;
      bad += PoU(s, &sp) != KVD_S_OK;
    }
  }

  // System objects: entered ones, and the import of the control system's own.
  const char* sys[][2] = {{"SYS.TIME", "System time"}, {"SYS.USER", "Logged-in user"},
                          {"SYS.ALARMS", "Open alarms"}, {"SYS.PRINTER", "Event printer"}};
  for (auto& [id, descr] : sys) {
    _SO_REC r{};
    Put(r.szSoId, id);
    Put(r.szSoDescr, descr);
    Put(r.szSoText, std::string(descr) + " of the operator station");
    r.vfmt = _UNSIGNED;
    const long st = SoI(s, &r);
    bad += st != KVD_S_OK && st != KVD_S_EXISTS;
  }
  _CURSOR_SD* c = nullptr;
  if (SoOCAccess(s, const_cast<char*>("I"), &c, 1, 0) == KVD_S_OK) {
    for (const Area& a : areas) {
      _SO_REC r{};
      Put(r.szSoId, std::string("SYS.COMM.") + a.id);
      Put(r.szSoDescr, std::string("Link to ") + a.station);
      Put(r.szSoText, "connected");
      r.lStatus = 1;
      r.r4Value = 100.0f;
      bad += SoGaWC(c, &r) != KVD_S_OK;
    }
    SoCC(c);
  } else {
    ++bad;
  }

  // References: the lead signal of each area under a name of its own.
  if (RefOCAccess(s, const_cast<char*>("E"), &c, 1, 0) == KVD_S_OK) {
    for (const Area& a : areas) {
      _REF_REC r{};
      Put(r.szId, std::string("REF.") + a.id + ".LEAD");
      Put(r.szDescr, std::string(a.descr) + ", lead signal");
      Put(r.szRefId, std::string(a.id) + "." + a.machines[0] + ".FLOW");
      r.chAccess = 'E';
      bad += RefWCAccess(c, &r) != KVD_S_OK;
    }
    RefCC(c);
  } else {
    ++bad;
  }

  // Sections: one per area, listing its running and flow points.
  std::vector<_DIRSEC_REC> dirs;
  std::vector<_SEC_REC> lines;
  int n = 0;
  for (const Area& a : areas) {
    _DIRSEC_REC d{};
    Put(d.szSecNo, "SEC" + std::to_string(++n));
    Put(d.szDescr, a.descr);
    d.lStartTime = 6 * 3600;
    d.lIntvTime = 3600;
    dirs.push_back(d);
    _SEC_REC head{};
    Put(head.szSecNo, d.szSecNo);
    Put(head.szComment, a.descr);
    head.LayoutTyp = LOTYP_TEXT;
    lines.push_back(head);
    for (const char* m : a.machines) {
      for (const char* sig : {".RUN", ".FLOW"}) {
        _SEC_REC l{};
        Put(l.szSecNo, d.szSecNo);
        Put(l.szPntId, std::string(a.id) + "." + m + sig);
        l.LayoutTyp = LOTYP_OBJ;
        lines.push_back(l);
      }
    }
  }
  bad += WriteThrough("Dirsec", s, dirs) + WriteThrough("Sec", s, lines);

  // Users: entered by hand, and the import of the plant's operators; profiles with their functions.
  const struct {
    const char* name;
    const char* pwd;
    uint16_t profile;
  } users[] = {{"ADMIN", "admin", 1}, {"ENGINEER", "plant", 2}, {"SHIFT1", "", 3}};
  uint16_t uid = 1;
  for (const auto& u : users) {
    _USER_REC r{};
    Put(r.szUserName, u.name);
    Put(r.szPwd, u.pwd);
    r.usPrflId = u.profile;
    r.usUserId = uid++;
    const long st = UsrI(s, &r);
    bad += st != KVD_S_OK && st != KVD_S_NOT_FOUND;  // 1: there already
  }
  if (UsrOCAccess(s, const_cast<char*>("I"), &c, 1) == KVD_S_OK) {
    for (const char* name : {"OPERATOR1", "OPERATOR2", "OPERATOR3", "OPERATOR4"}) {
      _USER_REC r{};
      Put(r.szUserName, name);
      r.usPrflId = 3;
      r.usUserId = uid++;
      r.ulKeyCardId = 3000000000u + uid;
      bad += UsrGaWC(c, &r) != KVD_S_OK;
    }
    UsrCC(c);
  } else {
    ++bad;
  }
  const uint16_t functions[][2] = {{1, 1}, {1, 2}, {1, 3}, {1, 10}, {1, 20}, {2, 2}, {2, 3}, {2, 10}, {3, 10}, {3, 20}};
  for (auto [p, f] : functions) {
    _USRPRFL_REC r{p, f, 0};
    const long st = UpI(s, &r);
    bad += st != KVD_S_OK && st != KVD_S_NOT_FOUND;
  }
  Unselect(s);
  if (bad != 0) std::fprintf(stderr, "kvd: %ld writes of the demo's data objects failed\n", bad);
  return bad != 0;
}

int WriteDemoJobs(const std::string& project_dir) {
  _SELECT_SD* s = SelectDir(project_dir.c_str(), 'K');
  auto job = [](const char* name, const char* descr, const char* fn, uint32_t type, const char* db, const char* field,
                uint16_t len, std::vector<std::pair<uint32_t, const char*>> params) {
    _JOB_REC r{};
    Put(r.szJobName, name);
    Put(r.szJobDescr, descr);
    Put(r.szDllName, "KVJOBS");
    Put(r.szFnName, fn);
    Put(r.szDbName, db);
    Put(r.szDbField, field);
    r.usLen = len;
    Put(r.szEdValid, len > 0 ? "T" : "F");
    r.ulJobType = type;
    r.usPrmCnt = static_cast<uint16_t>(params.size());
    for (std::size_t i = 0; i < params.size(); ++i) {
      r.aprm[i].ulTyp = params[i].first;
      Put(r.aprm[i].szPrmpt, params[i].second);
    }
    return r;
  };
  std::vector<_JOB_REC> jobs = {
      job("SHOWVALUE", "Show the value of a point", "ShowValue", 0x0000031F, "", "", 0, {{0x04000000, "Point"}}),
      job("SHOWDESCR", "Show the description", "ShowText", 0x0000011F, "_MP", "DESCRIPT", 30, {{0x04000000, "Point"}}),
      job("SHOWATTR", "Show an attribute", "ShowAttr", 0x0000033F, "", "", 40,
          {{0x04000000, "Point"}, {0x1A000000, "Attribute"}}),
      job("SETVALUE", "Enter a set point", "SetValue", 0x000002A8, "", "", 0, {{0x05000000, "Process object"}}),
      job("SWITCH", "Switch on or off", "Switch", 0x00000404, "", "", 0, {{0x05000000, "Process object"}}),
      job("ACKNOWLEDGE", "Acknowledge alarms", "Ackn", 0x0000041F, "", "", 0, {}),
      job("OPENPIC", "Open a picture", "OpenPicture", 0x8000041F, "", "", 0, {{0x10000000, "Picture"}}),
      job("BLINK", "Blink on alarm", "Blink", 0x0000101F, "", "", 0, {{0x04000000, "Point"}}),
  };
  auto attr = [](const char* name, const char* descr, const char* db, const char* field, uint16_t len, uint32_t q,
                 uint32_t sm) {
    _DOATTR_REC r{};
    Put(r.szDoAttrName, name);
    Put(r.szDoAttrDescr, descr);
    Put(r.szDbName, db);
    Put(r.szDbField, field);
    r.usLen = len;
    Put(r.szEdValid, "T");
    r.ulJobMaskQ = q;
    r.ulJobMaskS = sm;
    return r;
  };
  std::vector<_DOATTR_REC> attrs = {
      attr("DESCRIPTION", "Description", "", "DESCRIPT", 30, 0x0000011F, 0),
      attr("POINTID", "Id", "", "POINTID", 22, 0x0000011F, 0),
      attr("UNIT", "Unit", "_MP", "UNIT", 32, 0x00000102, 0),
      attr("STATION", "Station", "", "STATION", 32, 0x0000010F, 0),
      attr("RANGESTART", "Start of range", "", "RANGESTART", 9, 0x0000020A, 0x00000008),
      attr("RANGEEND", "End of range", "", "RANGEEND", 9, 0x0000020A, 0x00000008),
      attr("TEXT", "Text of a system object", "_SO", "TEXT", 40, 0x00000110, 0),
  };
  const long bad = WriteThrough("Job", s, jobs) + WriteThrough("DoAttr", s, attrs);
  Unselect(s);
  if (bad != 0) std::fprintf(stderr, "kvd: %ld writes of the demo's jobs failed\n", bad);
  return bad != 0;
}

}  // namespace kvd::tool
