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

#define KVD_TEXT(REC, member, name, len, ...) \
  ::kvd::frame::TextColumn<sizeof(REC::member), len>(name, offsetof(REC, member), __VA_ARGS__)
#define KVD_VALUE(REC, member, name, len, conv, ...) \
  ::kvd::frame::ValueColumn(name, len, ::kvd::frame::Conv::conv, offsetof(REC, member), sizeof(REC::member), ##__VA_ARGS__)

enum class Level : std::uint8_t { kVersion, kProject };

// How the key text of a keyed call is made from the name given.
enum class KeyRule : std::uint8_t {
  kPad,   // blank-padded to the key column's width: an exact key
  kTrim,  // trimmed at both ends: a shorter name finds the first key it begins
};

// What FC tests before it gives a record.
enum class FetchFilter : std::uint8_t {
  kNone,  // every record from the position on
  kWild,  // the key member against the cursor's pattern (CompareWild); the scan goes to the end
};

struct FamilySpec {
  const char* name;                  // the family's name, as its functions begin ("DirAs")
  const char* db_name;               // table file, with or without ".DBF"
  const char* index_name;            // index file, without extension: ".CDX"
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
};

// A family: its spec and the field definition made from its columns.
class Family {
 public:
  // Registers the family, so that tools find it by name.
  explicit Family(const FamilySpec& spec);
  Family(const Family&) = delete;
  Family& operator=(const Family&) = delete;

  const FamilySpec& spec() const { return spec_; }
  const FIELD4INFO* fields() const { return fields_.data(); }
  const Column& column(int i) const { return spec_.columns[i]; }
  const char* Path(const _SELECT_SD* s) const {
    return spec_.level == Level::kProject ? s->szProjektPath : s->szVersionPath;
  }

 private:
  FamilySpec spec_;
  std::vector<FIELD4INFO> fields_;
};

// Every family of the library, in the order they were registered; and one by name (case ignored).
const std::vector<const Family*>& AllFamilies();
const Family* FindFamily(const char* name);

// The size of a family's record, as far as its columns reach.
std::size_t RecordSize(const Family& f);

enum class Fill : std::uint8_t { kFull, kBrief };

// The operations, each as its family's exported function runs it. `rec` is the family's record.
long FamilyRead(const Family& f, _SELECT_SD* s, const char* name, void* rec);
long FamilyInsert(const Family& f, _SELECT_SD* s, void* rec);
long FamilyUpdate(const Family& f, _SELECT_SD* s, const void* rec);
long FamilyDelete(const Family& f, _SELECT_SD* s, const char* name, char* file, int max_file);
long FamilyOpenCursor(const Family& f, _SELECT_SD* s, const char* wildcard, _CURSOR_SD** cursor, int access);
long FamilyOpenAccessCursor(const Family& f, _SELECT_SD* s, const char* letters, _CURSOR_SD** cursor,
                            int access);
long FamilyFetch(const Family& f, _CURSOR_SD* c, void* rec, Fill fill);
long FamilyFetchAccess(const Family& f, _CURSOR_SD* c, void* rec);
long FamilyWrite(const Family& f, _CURSOR_SD* c, const void* rec);
long FamilyWriteAccess(const Family& f, _CURSOR_SD* c, const void* rec);
long FamilyWriteImported(const Family& f, _CURSOR_SD* c, void* rec);  // GaWC: letter "I"
long FamilyDeleteImported(const Family& f, _SELECT_SD* s);            // GaD
long FamilySeekCursor(const Family& f, _CURSOR_SD* c, void* rec);     // SCId
long FamilyCloseCursor(_CURSOR_SD* c);
long FamilyCheck(const Family& f, _SELECT_SD* s, char* msg, int max_msg);

// Record <-> current table record, and the trim of the listed members.
void BufferToRecord(const Family& f, DATA4St* db, void* rec, Fill fill);
void RecordToBuffer(const Family& f, DATA4St* db, const void* rec);
void TrimRecord(const Family& f, void* rec, Fill fill);

}  // namespace kvd::frame
