// The record-family machinery. Every table of the library is reached through a family of
// operations (R, I, U, D, OC, FC, WC, ...) that all follow one pattern; a table module describes
// its table as data (columns with their record members, tags, key rule, trim list, path level) and
// names the few places where it differs. The operations here run on that description.
//
// A record is a caller's C struct. Text members are NUL-terminated and one longer than their
// column; the table holds the text blank-padded, the record trimmed where the column says so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "include/kvd_frame.h"

namespace kvd::frame {

// How a record member and its column convert into each other.
enum class Conv : std::uint8_t {
  kText,     // char[len + 1] <-> text, blank-padded in the table
  kChar,     // char <-> one-character column
  kInt,      // int <-> decimal text, right-aligned
  kInt32,    // int32_t <-> decimal text, right-aligned
  kFlagTF,   // int: "T" reads as 1, anything else 0; written "T" when above 0, else "F"
  kSigned,   // signed whole number of the member's size (1, 2 or 4 bytes) <-> decimal text or N
  kUnsigned, // unsigned whole number of the member's size (1, 2 or 4 bytes) <-> decimal text or N
  kFloat,    // 32-bit float <-> decimal text with a fraction, or an N column with its decimals
  kRaw16,    // uint16_t <-> the column's two bytes as they stand, the first one low: a binary value
  kHex,      // unsigned of the member's size (2 or 4 bytes) <-> hexadecimal text (Kvf4hex)
  kLetter,   // unsigned of the member's size <-> one character, widened (and cut back on writing)
  kCode,     // an enumeration (int) <-> its letter, through the column's LetterCode
  kTime,     // int32_t seconds <-> "hh:mm:ss"; missing parts read as 0
  kSkip,     // a column of the table that no member has: neither read nor written (a new row is blank)
};

// An enumeration stored as one letter: the two directions of its code set.
struct LetterCode {
  int (*from_letter)(char letter);
  char (*to_letter)(int value);
};

struct Column {
  const char* name;
  char type;                 // 'C' or 'N'
  unsigned short len;
  unsigned short dec;
  Conv conv;
  std::size_t offset;        // of the member in the record
  std::size_t size;          // of the member
  bool trim;                 // trimmed at both ends after a read
  bool pad;                  // padded to the column width in the private copy a write makes
  bool brief;                // filled by the brief fetch (FC of a family that also has FC2)
  const LetterCode* codes = nullptr;  // Conv::kCode: the code set
};

// Text column: the member must be one longer than the column.
template <std::size_t Size, unsigned Len>
constexpr Column TextColumn(const char* name, std::size_t offset, bool trim, bool pad = false, bool brief = false) {
  static_assert(Size == Len + 1, "a text member is one longer than its column");
  return Column{name, 'C', static_cast<unsigned short>(Len), 0, Conv::kText, offset, Size, trim, pad, brief};
}

constexpr Column ValueColumn(const char* name, unsigned short len, Conv conv, std::size_t offset, std::size_t size,
                             bool brief = false) {
  return Column{name, 'C', len, 0, conv, offset, size, false, false, brief};
}

constexpr Column NumberColumn(const char* name, unsigned short len, unsigned short dec, Conv conv, std::size_t offset,
                              std::size_t size) {
  return Column{name, 'N', len, dec, conv, offset, size, false, false, false};
}

constexpr Column SkipColumn(const char* name, unsigned short len) {
  return Column{name, 'C', len, 0, Conv::kSkip, 0, 0, false, false, false};
}

constexpr Column CodeColumn(const char* name, const LetterCode* codes, std::size_t offset, std::size_t size,
                            bool brief = false) {
  return Column{name, 'C', 1, 0, Conv::kCode, offset, size, false, false, brief, codes};
}

#define KVD_TEXT(REC, member, name, len, ...) \
  ::kvd::frame::TextColumn<sizeof(REC::member), len>(name, offsetof(REC, member), __VA_ARGS__)
#define KVD_VALUE(REC, member, name, len, conv, ...) \
  ::kvd::frame::ValueColumn(name, len, ::kvd::frame::Conv::conv, offsetof(REC, member), sizeof(REC::member), ##__VA_ARGS__)

#define KVD_NUMBER(REC, member, name, len, dec, conv) \
  ::kvd::frame::NumberColumn(name, len, dec, ::kvd::frame::Conv::conv, offsetof(REC, member), sizeof(REC::member))
#define KVD_CODE(REC, member, name, codes) \
  ::kvd::frame::CodeColumn(name, codes, offsetof(REC, member), sizeof(REC::member))
#define KVD_SKIP(name, len) ::kvd::frame::SkipColumn(name, len)

enum class Level : std::uint8_t { kVersion, kProject };

// How the key text of a keyed call is made from the name given.
enum class KeyRule : std::uint8_t {
  kPad,       // blank-padded to the key column's width: an exact key
  kTrim,      // trimmed at both ends: a shorter name finds the first key it begins
  kPadUpper,  // padded and in upper case, for a tag on upper(column): the name's case does not count
  kAsGiven,   // the text as it stands: a shorter one finds the first key it begins
};

// What FC tests before it gives a record. A cursor with an empty szWildcard has no filter.
enum class FetchFilter : std::uint8_t {
  kNone,    // every record from the position on
  kWild,    // the key member against the cursor's pattern (CompareWild); the scan goes to the end
  kPrefix,  // `prefix_width` characters of `prefix_column`, as stored, against szWildcard (strncmp):
            // the first record that differs answers 1 and is neither read nor passed; width 0:
            // as many characters as the cursor's key has
};

// How OC seeks a wildcard and what it keeps of it in szWildcard.
enum class CursorKey : std::uint8_t {
  kRaw,  // the text as given: the cursor starts at the first key at or after it
  kKey,  // the key made by the family's rule, sought and kept; a text longer than the key column
         // is no key of the table, and the cursor stands at the end
};

// What OC makes of an empty wildcard.
enum class EmptyWildcard : std::uint8_t {
  kStored,  // sought and kept like any other text
  kNull,    // the same as null: the first record, no filter
};

// What OC with nAccess 1 clears before it returns, so that the cursor's WC replaces what it covers.
enum class WriteOpen : std::uint8_t {
  kKeep,          // nothing; WC appends to what is there
  kDeleteFiles,   // the table's files go before the open, and the cursor starts on a new empty table
  kDeleteToEnd,   // every record from the start position to the end, then a pack
  kDeleteKeyRun,  // the records that carry the cursor's key, then a pack; without a key OC answers 1
};

// The orders of the OC that takes an order number (nTag).
struct TagChoice {
  int id_number = 2;                // the number that chooses `id_tag`
  const char* id_tag = "POINTID";
  const char* other_tag = nullptr;  // every other number; null: the first tag
};

struct FamilyDef {
  const char* name;                  // the family's name, as its functions begin ("DirAs")
  const char* db_name;               // table file, with or without ".DBF"
  const char* index_name;            // index file, without extension: ".CDX"; null: the table has none,
                                     // and its cursors give the records in record order
  Level level = Level::kVersion;
  const Column* columns = nullptr;
  std::size_t column_count = 0;
  const TAG4INFO* tags = nullptr;    // ends with a null name
  const char* key_tag = nullptr;     // the tag keyed calls and OC use; null: the first
  int key_column = 0;                // the column the key is made from
  KeyRule key_rule = KeyRule::kPad;
  long duplicate_status = KVD_S_EXISTS;  // what I answers for a key that exists
  int insert_access = 1;             // nAccess of I
  int access_column = -1;            // the ACCESS letter column, -1 when the table has none
  FetchFilter fetch_filter = FetchFilter::kNone;
  const char* prefix_column = nullptr;  // FetchFilter::kPrefix: the column compared
  int prefix_width = 0;                 //   and over how many characters
  bool fetch_trims = true;           // FC trims the listed members; false: as the table holds them
  const char* second_tag = nullptr;  // the order of OC2; null: the second tag
  TagChoice tag_choice = {};         // the orders of the OC with nTag
  CursorKey cursor_key = CursorKey::kRaw;
  EmptyWildcard empty_wildcard = EmptyWildcard::kStored;
  WriteOpen write_open = WriteOpen::kKeep;
  const char* extra_file = nullptr;  // WriteOpen::kDeleteFiles: one more file of the table, removed
                                     // with it, name with extension ("_X.MDX")
  bool deletes_fetched = false;      // the family has DC: FC keeps the record it read in the
                                     // family's fetch mark
  int key_column2 = -1;              // a second column whose stored form follows the first's in the
                                     // key (numbers right-aligned, as the engine stores them)
  bool wild_on_stored_key = false;   // FC's pattern is compared with the key as stored (padded,
                                     // numbers right-aligned), not with the trimmed member
  bool seek_pads_member = false;     // SCId pads the record's key member in place before it seeks
  int update_column = -1;            // U changes only this column of an existing record and answers
                                     // 1 to a key that is missing; -1: U writes every column and adds
  const char* import_db_name = nullptr;     // the parallel import table of the same definition,
  const char* import_index_name = nullptr;  //   opened by OCAccess on request and checked first
  bool check_in_project = false;     // CheckDBStructure looks in the project directory
  const char* mask_columns[2] = {};  // the mask cursor: hexadecimal columns or-ed into a row's word
  std::uint32_t mask_lift = 0;       //   a request that passes every row after the first; 0: none
};

// A family: its definition and the fields made made from its columns.
enum class Fill : std::uint8_t { kFull, kBrief };

class Family {
 public:
  // Registers the family, so that tools find it by name.
  explicit Family(const FamilyDef& def);
  Family(const Family&) = delete;
  Family& operator=(const Family&) = delete;

  const FamilyDef& def() const { return def_; }
  const FIELD4INFO* fields() const { return fields_.data(); }
  const Column& column(int i) const { return def_.columns[i]; }
  const char* Path(const _SELECT_SD* s) const {
    return def_.level == Level::kProject ? s->szProjektPath : s->szVersionPath;
  }

  // The module state of a family with DC: the record its FC read last, and whether DC deleted
  // since the cursor opened. There is one per family and process, as these families always had
  // it, so only one cursor of such a family may be open at a time: DC deletes what the family's
  // last FC read, on whichever cursor that was. Not for two threads at once.
  struct FetchMark {
    long rec_no = 0;       // the record FC read last; 0: none
    bool deleted = false;  // DC deleted a record; the closing CC packs
  };
  FetchMark& fetch_mark() const { return mark_; }

  // The columns a fetch of this fill reads, and among them the text columns it trims, in column
  // order: worked out once, so that a cursor's rows pass over nothing else (a table of a hundred
  // columns fetched briefly reads three).
  const std::vector<int>& filled(Fill fill) const { return fill == Fill::kFull ? full_ : brief_; }
  const std::vector<int>& trimmed(Fill fill) const { return fill == Fill::kFull ? full_trim_ : brief_trim_; }

 private:
  FamilyDef def_;
  std::vector<FIELD4INFO> fields_;
  std::vector<int> full_, brief_, full_trim_, brief_trim_;
  mutable FetchMark mark_;
};

// Every family of the library, in the order they were registered; and one by name (case ignored).
const std::vector<const Family*>& AllFamilies();
const Family* FindFamily(const char* name);

// The size of a family's record, as far as its columns reach.
std::size_t RecordSize(const Family& f);

// The operations, each as its family's exported function runs it. `rec` is the family's record.
long FamilyRead(const Family& f, _SELECT_SD* s, const char* name, void* rec);
long FamilyInsert(const Family& f, _SELECT_SD* s, void* rec);
long FamilyUpdate(const Family& f, _SELECT_SD* s, const void* rec);
long FamilyDelete(const Family& f, _SELECT_SD* s, const char* name, char* file, int max_file);
// OC. With nAccess 1 the cursor first clears what the family's WriteOpen names: without a key a
// kDeleteKeyRun cursor answers 1, and a kDeleteFiles cursor whose files another opener holds 6;
// neither leaves a cursor.
long FamilyOpenCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor, int access);
// OC2: as OC, in the family's second order.
long FamilyOpenSecondCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor,
                            int access);
// The OC with an order number: a wildcard beginning with "*" is no filter; any other starts the
// cursor at its trimmed text cut at the first "?" and "*", and is kept with a "*" behind it unless
// it fills the key column or ends in "?".
long FamilyOpenTagCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor,
                         int access, int tag);
// `import`: on the family's import table in place of its own.
long FamilyOpenAccessCursor(const Family& f, _SELECT_SD* s, const char* letters, _CURSOR_SD** cursor,
                            int access, bool import = false);
// The mask cursor: rows whose word (the family's mask columns or-ed) passes `mask` by MaskPasses.
// OC stands on the first row that passes; FC gives it and moves on to the next that passes (with
// the family's mask_lift as `mask`: on to the next row). The mask is kept in szWildcard's first
// four bytes.
long FamilyOpenMaskCursor(const Family& f, _SELECT_SD* s, std::uint32_t mask, _CURSOR_SD** cursor, int access);
long FamilyFetchMasked(const Family& f, _CURSOR_SD* c, void* rec);
// The selection mask: the row's word `w` and the request `m` share a category bit (0x000FFF00) and
// an object bit (0x8000007F), and `w` has the required bit 0x80 when `m` has it.
bool MaskPasses(std::uint32_t w, std::uint32_t m);
long FamilyFetch(const Family& f, _CURSOR_SD* c, void* rec, Fill fill);
// FC2 of a family whose FC filters: every record from the position on, whole, with no filter.
long FamilyFetchWhole(const Family& f, _CURSOR_SD* c, void* rec);
long FamilyFetchAccess(const Family& f, _CURSOR_SD* c, void* rec);
long FamilyWrite(const Family& f, _CURSOR_SD* c, const void* rec);
long FamilyWriteAccess(const Family& f, _CURSOR_SD* c, const void* rec);
long FamilyWriteImported(const Family& f, _CURSOR_SD* c, void* rec);  // GaWC: letter "I"
long FamilyDeleteImported(const Family& f, _SELECT_SD* s);            // GaD
long FamilySeekCursor(const Family& f, _CURSOR_SD* c, void* rec);     // SCId
// DC: deletes the record the family's FC read last and goes back to where the cursor stood; 1
// when FC read none since the cursor opened (FCAccess does not count).
long FamilyDeleteFetched(const Family& f, _CURSOR_SD* c);
long FamilyCloseCursor(_CURSOR_SD* c);
// CC of a family with DC: packs the table when DC deleted, and forgets the fetch mark.
long FamilyCloseCursor(const Family& f, _CURSOR_SD* c);
long FamilyCheck(const Family& f, _SELECT_SD* s, char* msg, int max_msg);

// The key of a record as the index holds it: the key column's stored form, and the second key
// column's behind it.
std::string StoredKey(const Family& f, const void* rec);

// Record <-> current table record, and the trim of the listed members.
void BufferToRecord(const Family& f, DATA4St* db, void* rec, Fill fill);
void RecordToBuffer(const Family& f, DATA4St* db, const void* rec);
void TrimRecord(const Family& f, void* rec, Fill fill);

}  // namespace kvd::frame
