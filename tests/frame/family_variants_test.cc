// The variants of the record-family pattern, each on a small family made here: the second order
// and the order number of OC, empty wildcards, write cursors that clear, prefix and untrimmed
// fetches, DC, tables without an index, and keys in upper case.
#include <cstring>
#include <string>
#include <vector>

#include "frame/family.h"
#include "tests/frame/frame_test_util.h"

namespace kvd::test {
namespace {

namespace fs = std::filesystem;
using namespace kvd::frame;

// Points: an id and an object number, in two orders.
struct PointRec {
  char szId[23];
  char szObj[5];
};
const Column kPointColumns[] = {KVD_TEXT(PointRec, szId, "ID", 22, true), KVD_TEXT(PointRec, szObj, "OBJ", 4, true)};
const TAG4INFO kPointTags[] = {{"POINTID", "ID", ".NOT. DELETED()", 0, 0},
                               {"OBJID", "OBJ", ".NOT. DELETED()", 0, 0},
                               {nullptr, nullptr, nullptr, 0, 0}};
FamilyDef PointSpec(const char* name, int id_number, EmptyWildcard empty) {
  FamilyDef s{name, "_VPOINT.DBF", "_VPOINT"};
  s.columns = kPointColumns;
  s.column_count = std::size(kPointColumns);
  s.tags = kPointTags;
  s.key_tag = "POINTID";
  s.fetch_filter = FetchFilter::kWild;
  s.tag_choice = {id_number, "POINTID", "OBJID"};
  s.empty_wildcard = empty;
  return s;
}
const Family kPoint(PointSpec("VPoint", 2, EmptyWildcard::kStored));
const Family kPointOne(PointSpec("VPointOne", 1, EmptyWildcard::kNull));

// Cases of conditions: one table under several families that differ only in their knobs.
struct CaseRec {
  char szCond[9];
  int nCase;
  char szDescr[11];
};
const Column kCaseColumns[] = {KVD_TEXT(CaseRec, szCond, "CONDITION", 8, true),
                               KVD_VALUE(CaseRec, nCase, "CASE", 6, kInt),
                               KVD_TEXT(CaseRec, szDescr, "DESCRIPT", 10, true)};
const TAG4INFO kCaseTags[] = {{"CONDITION", "CONDITION", ".NOT. DELETED()", 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
template <class Tweak>
FamilyDef CaseSpec(const char* name, Tweak tweak) {
  FamilyDef s{name, "_VCASE.DBF", "_VCASE"};
  s.columns = kCaseColumns;
  s.column_count = std::size(kCaseColumns);
  s.tags = kCaseTags;
  tweak(s);
  return s;
}
void Prefixed(FamilyDef& s) {
  s.fetch_filter = FetchFilter::kPrefix;
  s.prefix_column = "CONDITION";
  s.prefix_width = 8;
}
const Family kCase(CaseSpec("VCase", [](FamilyDef& s) {  // a key's run, replaced whole
  Prefixed(s);
  s.cursor_key = CursorKey::kKey;
  s.write_open = WriteOpen::kDeleteKeyRun;
}));
const Family kCaseRaw(CaseSpec("VCaseRaw", [](FamilyDef& s) {  // raw key, empty as null
  Prefixed(s);
  s.empty_wildcard = EmptyWildcard::kNull;
}));
const Family kCaseKeyNull(CaseSpec("VCaseKeyNull", [](FamilyDef& s) {  // padded key, empty as null
  Prefixed(s);
  s.cursor_key = CursorKey::kKey;
  s.empty_wildcard = EmptyWildcard::kNull;
}));
const Family kCaseAsStored(CaseSpec("VCaseAsStored", [](FamilyDef& s) { s.fetch_trims = false; }));
const Family kCaseToEnd(CaseSpec("VCaseToEnd", [](FamilyDef& s) { s.write_open = WriteOpen::kDeleteToEnd; }));
const Family kCaseNew(CaseSpec("VCaseNew", [](FamilyDef& s) {
  s.write_open = WriteOpen::kDeleteFiles;
  s.extra_file = "_VCASE.MDX";
}));
const Family kCaseDel(CaseSpec("VCaseDel", [](FamilyDef& s) { s.deletes_fetched = true; }));
const Family kReport(CaseSpec("VReport", [](FamilyDef& s) {
  s.db_name = "_VREPORT.DBF";
  s.index_name = nullptr;
  s.tags = nullptr;
  s.write_open = WriteOpen::kDeleteFiles;
}));
const Family kJob(CaseSpec("VJob", [](FamilyDef& s) {  // a tag on upper(CONDITION)
  static const TAG4INFO tags[] = {{"JOB", "upper(CONDITION)", ".NOT. DELETED()", 0, 0},
                                  {nullptr, nullptr, nullptr, 0, 0}};
  s.db_name = "_VJOB.DBF";
  s.index_name = "_VJOB";
  s.tags = tags;
  s.key_rule = KeyRule::kPadUpper;
}));

PointRec Point(const char* id, const char* obj) {
  PointRec r{};
  std::snprintf(r.szId, sizeof r.szId, "%s", id);
  std::snprintf(r.szObj, sizeof r.szObj, "%s", obj);
  return r;
}
CaseRec Case(const char* cond, int n) {
  CaseRec r{};
  std::snprintf(r.szCond, sizeof r.szCond, "%s", cond);
  r.nCase = n;
  std::snprintf(r.szDescr, sizeof r.szDescr, "d%d", n);
  return r;
}
std::string Show(const PointRec& r) { return r.szId; }
std::string Show(const CaseRec& r) { return std::string(r.szCond) + ":" + std::to_string(r.nCase); }
using Rows = std::vector<std::string>;

class FamilyVariants : public ::testing::Test {
 protected:
  Plant plant_;
  std::string dir_ = plant_.MakeDir("v1");
  _SELECT_SD* sel_ = SelectDir(dir_.c_str(), 'T');
  ~FamilyVariants() override { Unselect(sel_); }

  void AddPoints(std::vector<PointRec> rows) {
    for (PointRec& r : rows) ASSERT_EQ(FamilyInsert(kPoint, sel_, &r), 0) << Show(r);
  }
  // What the cursor still gives; it is closed.
  template <class Rec>
  Rows Drain(const Family& f, _CURSOR_SD* c) {
    Rows out;
    Rec r{};
    while (c != nullptr && FamilyFetch(f, c, &r, Fill::kFull) == 0) out.push_back(Show(r));
    FamilyCloseCursor(f, c);
    return out;
  }
  Rows Cases(const Family& f, const char* wild = nullptr) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(FamilyOpenCursor(f, sel_, wild, &c, 0), 0);
    return Drain<CaseRec>(f, c);
  }
  Rows Points(int tag, const char* wild, const Family& f = kPoint, std::string* kept = nullptr) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(FamilyOpenTagCursor(f, sel_, wild, &c, 0, tag), 0);
    if (kept != nullptr && c != nullptr) *kept = c->szWildcard;
    return Drain<PointRec>(f, c);
  }
  // The record a cursor stands on, untouched by its filter.
  template <class Rec>
  std::string Current(const Family& f, _CURSOR_SD* c) {
    Rec r{};
    BufferToRecord(f, c->lpDb, &r, Fill::kFull);
    TrimRecord(f, &r, Fill::kFull);
    return d4eof(c->lpDb) ? "<end>" : Show(r);
  }
  long Count(const Family& f) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(FamilyOpenCursor(f, sel_, nullptr, &c, 0), 0);
    const long n = DBRcrdCnt(sel_, c);
    FamilyCloseCursor(c);
    return n;
  }
  // Appended through a write cursor that clears nothing: a condition has several cases.
  void AddCases(std::vector<CaseRec> rows = {Case("A", 1), Case("A", 2), Case("B", 1), Case("B", 2),
                                             Case("BB", 1), Case("C", 1)}) {
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(FamilyOpenCursor(kCaseAsStored, sel_, nullptr, &c, 1), 0);
    for (CaseRec& r : rows) ASSERT_EQ(FamilyWrite(kCaseAsStored, c, &r), 0);
    FamilyCloseCursor(c);
  }
};

TEST_F(FamilyVariants, SecondOrderAndOrderNumberChooseTheTag) {
  AddPoints({Point("A1", "30"), Point("B1", "10"), Point("C1", "20")});
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenSecondCursor(kPoint, sel_, nullptr, &c, 0), 0);
  EXPECT_EQ(Drain<PointRec>(kPoint, c), (Rows{"B1", "C1", "A1"}));
  // OC2 starts plainly: the text as given, kept with no "*" added.
  ASSERT_EQ(FamilyOpenSecondCursor(kPoint, sel_, "15", &c, 0), 0);
  EXPECT_STREQ(c->szWildcard, "15");
  EXPECT_EQ(Current<PointRec>(kPoint, c), "C1");
  FamilyCloseCursor(c);
  // The id order for the family's number, the other order for any other.
  EXPECT_EQ(Points(2, nullptr), (Rows{"A1", "B1", "C1"}));
  EXPECT_EQ(Points(1, nullptr), (Rows{"B1", "C1", "A1"}));
  EXPECT_EQ(Points(1, nullptr, kPointOne), (Rows{"A1", "B1", "C1"}));
  EXPECT_EQ(Points(2, nullptr, kPointOne), (Rows{"B1", "C1", "A1"}));
}

TEST_F(FamilyVariants, OrderNumberPatternsStartAtTheirFixedBeginning) {
  AddPoints({Point("A1X", "1"), Point("A5X", "2"), Point("AB", "3"), Point("ABC", "4"), Point("AC", "5"),
             Point("B", "6"), Point(std::string(21, 'Z').c_str(), "7"), Point(std::string(22, 'Z').c_str(), "8")});
  std::string kept;
  EXPECT_EQ(Points(2, "AB", kPoint, &kept), (Rows{"AB", "ABC"}));
  EXPECT_EQ(kept, "AB*");
  EXPECT_EQ(Points(2, "AB?", kPoint, &kept), (Rows{"ABC"}));
  EXPECT_EQ(kept, "AB?");
  // The seek is cut at "?" and "*": "A?X" starts at A1X, "AC*B" at AC.
  EXPECT_EQ(Points(2, "A?X"), (Rows{"A1X", "A5X"}));
  EXPECT_EQ(Points(2, "AC*B"), (Rows{"AC"}));
  // The seek is trimmed; the pattern kept is not.
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenTagCursor(kPoint, sel_, " AC", &c, 0, 2), 0);
  EXPECT_EQ(Current<PointRec>(kPoint, c), "AC");
  EXPECT_STREQ(c->szWildcard, " AC*");
  FamilyCloseCursor(c);
  // "*..." is no filter; a pattern as long as the key column gets no "*".
  EXPECT_EQ(Points(2, "*B", kPoint, &kept).size(), 8u);
  EXPECT_EQ(kept, "");
  EXPECT_EQ(Points(2, std::string(21, 'Z').c_str(), kPoint, &kept).size(), 2u);
  EXPECT_EQ(kept, std::string(21, 'Z') + "*");
  EXPECT_EQ(Points(2, std::string(22, 'Z').c_str(), kPoint, &kept), (Rows{std::string(22, 'Z')}));
  EXPECT_EQ(kept, std::string(22, 'Z'));
  // An empty pattern: sought and kept as "*" (all), or taken as null.
  EXPECT_EQ(Points(2, "", kPoint, &kept).size(), 8u);
  EXPECT_EQ(kept, "*");
  EXPECT_EQ(Points(1, "", kPointOne, &kept).size(), 8u);
  EXPECT_EQ(kept, "");
}

TEST_F(FamilyVariants, PrefixCursorsGiveOneRunAndStopAtItsEnd) {
  AddCases();
  AddCases({Case("", 9), Case("TOOLONGK", 1)});
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kCase, sel_, "B", &c, 0), 0);
  EXPECT_STREQ(c->szWildcard, "B       ");  // the key, padded
  CaseRec r{};
  ASSERT_EQ(FamilyFetch(kCase, c, &r, Fill::kFull), 0);
  ASSERT_EQ(FamilyFetch(kCase, c, &r, Fill::kFull), 0);
  EXPECT_EQ(Show(r), "B:2");
  EXPECT_EQ(FamilyFetch(kCase, c, &r, Fill::kFull), KVD_S_NOT_FOUND);
  EXPECT_EQ(Show(r), "B:2");                      // the record that ends the run is not read
  EXPECT_EQ(Current<CaseRec>(kCase, c), "BB:1");  // and the cursor stays on it
  FamilyCloseCursor(c);
  // The stored column is compared over its width: a raw short key has no run.
  EXPECT_EQ(Cases(kCaseRaw, "B"), Rows{});
  EXPECT_EQ(Cases(kCaseRaw, "B       "), (Rows{"B:1", "B:2"}));
  // An empty wildcard: a key of blanks, or no filter at all.
  EXPECT_EQ(Cases(kCase, ""), (Rows{":9"}));
  EXPECT_EQ(Cases(kCaseKeyNull, "").size(), 8u);
  // A key longer than its column is no key, not the key it begins with.
  EXPECT_EQ(Cases(kCase, "TOOLONGKEY"), Rows{});
  EXPECT_EQ(Cases(kCase, "TOOLONGK"), (Rows{"TOOLONGK:1"}));
}

TEST_F(FamilyVariants, WriteCursorsClearTheirKeyRunOrTheRestOfTheTable) {
  AddCases();
  _CURSOR_SD* c = reinterpret_cast<_CURSOR_SD*>(0x1);
  EXPECT_EQ(FamilyOpenCursor(kCase, sel_, nullptr, &c, 1), KVD_S_NOT_FOUND);  // no key to replace
  EXPECT_EQ(c, nullptr);
  ASSERT_EQ(FamilyOpenCursor(kCase, sel_, "B", &c, 1), 0);
  EXPECT_EQ(DBRcrdCnt(sel_, c), 4);  // packed
  for (int n : {7, 8}) {
    CaseRec r = Case("B", n);
    ASSERT_EQ(FamilyWrite(kCase, c, &r), 0);
  }
  FamilyCloseCursor(c);
  EXPECT_EQ(Cases(kCaseAsStored).size(), 6u);
  EXPECT_EQ(Cases(kCase, "B"), (Rows{"B:7", "B:8"}));
  // A key with no records, or longer than its column, removes nothing.
  for (const char* key : {"Q", "TOOLONGKEY"}) {
    ASSERT_EQ(FamilyOpenCursor(kCase, sel_, key, &c, 1), 0);
    EXPECT_EQ(DBRcrdCnt(sel_, c), 6);
    FamilyCloseCursor(c);
  }
  // From the start to the end: the records in front of the key stay.
  ASSERT_EQ(FamilyOpenCursor(kCaseToEnd, sel_, "B", &c, 1), 0);
  EXPECT_EQ(DBRcrdCnt(sel_, c), 2);
  FamilyCloseCursor(c);
  EXPECT_EQ(Cases(kCaseAsStored), (Rows{"A       :1", "A       :2"}));
  ASSERT_EQ(FamilyOpenCursor(kCaseToEnd, sel_, nullptr, &c, 1), 0);
  EXPECT_EQ(DBRcrdCnt(sel_, c), 0);
  FamilyCloseCursor(c);
}

TEST_F(FamilyVariants, WriteCursorStartsOnNewFilesUnlessOneIsHeld) {
  AddCases();
  const std::string mdx = dir_ + "_VCASE.MDX";
  std::ofstream(mdx) << "x";
  // A reading cursor holds table and index: nothing is removed, and no cursor comes.
  _CURSOR_SD* reader = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kCaseNew, sel_, nullptr, &reader, 0), 0);
  _CURSOR_SD* c = reinterpret_cast<_CURSOR_SD*>(0x1);
  EXPECT_EQ(FamilyOpenCursor(kCaseNew, sel_, nullptr, &c, 1), KVD_S_OPEN_TABLE);
  EXPECT_EQ(c, nullptr);
  FamilyCloseCursor(reader);
  EXPECT_TRUE(fs::exists(mdx));
  EXPECT_EQ(Count(kCase), 6);
  // Another program holds the table alone: the index files go, the table stays, and its index is
  // built again on the next open.
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_VCASE.DBF").c_str());
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(FamilyOpenCursor(kCaseNew, sel_, nullptr, &c, 1), KVD_S_OPEN_TABLE);
    EXPECT_FALSE(fs::exists(mdx));
    EXPECT_FALSE(fs::exists(dir_ + "_VCASE.CDX"));
  }
  EXPECT_EQ(Cases(kCase, "B"), (Rows{"B:1", "B:2"}));
  // Free: a new empty table.
  std::ofstream(mdx) << "x";
  ASSERT_EQ(FamilyOpenCursor(kCaseNew, sel_, nullptr, &c, 1), 0);
  EXPECT_EQ(DBRcrdCnt(sel_, c), 0);
  EXPECT_FALSE(fs::exists(mdx));
  CaseRec r = Case("N", 1);
  ASSERT_EQ(FamilyWrite(kCaseNew, c, &r), 0);
  FamilyCloseCursor(c);
  EXPECT_EQ(Cases(kCase), (Rows{"N:1"}));
}

TEST_F(FamilyVariants, UntrimmedFetchGivesEveryColumnAsStored) {
  AddCases();
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kCaseAsStored, sel_, "B", &c, 0), 0);
  CaseRec r{};
  ASSERT_EQ(FamilyFetch(kCaseAsStored, c, &r, Fill::kFull), 0);
  EXPECT_STREQ(r.szCond, "B       ");
  EXPECT_STREQ(r.szDescr, "d1        ");
  EXPECT_EQ(r.nCase, 1);
  FamilyCloseCursor(c);
  EXPECT_EQ(Cases(kCaseRaw, "B       ").front(), "B:1");  // the same row, trimmed
}

TEST_F(FamilyVariants, DeleteFetchedRemovesTheLastFetchedAndPacksAtClose) {
  AddCases();
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kCaseDel, sel_, nullptr, &c, 0), 0);
  EXPECT_EQ(FamilyDeleteFetched(kCaseDel, c), KVD_S_NOT_FOUND);  // nothing fetched yet
  CaseRec r{};
  ASSERT_EQ(FamilyFetch(kCaseDel, c, &r, Fill::kFull), 0);
  ASSERT_EQ(FamilyFetch(kCaseDel, c, &r, Fill::kFull), 0);
  ASSERT_EQ(FamilyDeleteFetched(kCaseDel, c), 0);  // A:2
  EXPECT_EQ(FamilyDeleteFetched(kCaseDel, c), 0);  // the same record again
  ASSERT_EQ(FamilyFetch(kCaseDel, c, &r, Fill::kFull), 0);
  EXPECT_EQ(Show(r), "B:1");  // back where the cursor stood
  EXPECT_EQ(DBRcrdCnt(sel_, c), 6);  // marked, not yet packed
  while (FamilyFetch(kCaseDel, c, &r, Fill::kFull) == 0) {
  }
  ASSERT_EQ(FamilyDeleteFetched(kCaseDel, c), 0);  // C:1, from the end
  EXPECT_EQ(FamilyFetch(kCaseDel, c, &r, Fill::kFull), KVD_S_NOT_FOUND);  // still at the end
  FamilyCloseCursor(kCaseDel, c);
  EXPECT_EQ(Count(kCase), 4);
  EXPECT_EQ(Cases(kCase, "A"), (Rows{"A:1"}));
  // FCAccess does not count as a fetch for DC.
  ASSERT_EQ(FamilyOpenCursor(kCaseDel, sel_, nullptr, &c, 0), 0);
  ASSERT_EQ(FamilyFetch(kCaseDel, c, &r, Fill::kFull), 0);
  ASSERT_EQ(FamilyFetchAccess(kCaseDel, c, &r), 0);
  EXPECT_EQ(FamilyDeleteFetched(kCaseDel, c), KVD_S_NOT_FOUND);
  ASSERT_EQ(FamilyFetch(kCaseDel, c, &r, Fill::kFull), 0);
  // The mark is the family's, not the cursor's: another cursor's OC forgets what this one fetched.
  _CURSOR_SD* second = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kCaseDel, sel_, nullptr, &second, 0), 0);
  EXPECT_EQ(FamilyDeleteFetched(kCaseDel, second), KVD_S_NOT_FOUND);
  FamilyCloseCursor(kCaseDel, second);
  FamilyCloseCursor(kCaseDel, c);
  EXPECT_EQ(Count(kCase), 4);
}

TEST_F(FamilyVariants, TableWithoutIndexKeepsTheOrderOfAppending) {
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kReport, sel_, nullptr, &c, 1), 0);
  EXPECT_EQ(c->lpNdx, nullptr);
  for (const char* k : {"Z", "A", "M"}) {
    CaseRec r = Case(k, 1);
    ASSERT_EQ(FamilyWrite(kReport, c, &r), 0);
  }
  FamilyCloseCursor(c);
  EXPECT_EQ(Cases(kReport), (Rows{"Z:1", "A:1", "M:1"}));
  EXPECT_EQ(Cases(kReport, "M"), (Rows{"Z:1", "A:1", "M:1"}));  // nothing to seek in
  EXPECT_FALSE(fs::exists(dir_ + "_VREPORT.CDX"));
  ASSERT_EQ(FamilyOpenCursor(kReport, sel_, nullptr, &c, 1), 0);  // a new report
  EXPECT_EQ(DBRcrdCnt(sel_, c), 0);
  FamilyCloseCursor(c);
}

TEST_F(FamilyVariants, UpperCaseKeysFindANameInAnyCase) {
  CaseRec job = Case("MyJob", 1);
  ASSERT_EQ(FamilyInsert(kJob, sel_, &job), 0);
  CaseRec same = Case("MYJOB", 2);
  EXPECT_EQ(FamilyInsert(kJob, sel_, &same), KVD_S_EXISTS);
  CaseRec r{};
  ASSERT_EQ(FamilyRead(kJob, sel_, "myjob", &r), 0);
  EXPECT_EQ(Show(r), "MyJob:1");  // stored as written
  ASSERT_EQ(FamilyUpdate(kJob, sel_, &same), 0);
  ASSERT_EQ(FamilyRead(kJob, sel_, "MyJoB", &r), 0);
  EXPECT_EQ(r.nCase, 2);
  EXPECT_EQ(Count(kJob), 1);
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(FamilyOpenCursor(kJob, sel_, nullptr, &c, 0), 0);
  CaseRec probe = Case("myJob", 0);
  EXPECT_EQ(FamilySeekCursor(kJob, c, &probe), 0);
  FamilyCloseCursor(c);
  EXPECT_EQ(FamilyRead(kJob, sel_, "myjo", &r), KVD_S_NOT_FOUND);  // an exact key, not a prefix
  ASSERT_EQ(FamilyDelete(kJob, sel_, "mYjOb", nullptr, 0), 0);
  EXPECT_EQ(FamilyRead(kJob, sel_, "MYJOB", &r), KVD_S_NOT_FOUND);
}

}  // namespace
}  // namespace kvd::test
