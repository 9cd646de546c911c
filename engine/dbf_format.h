// The dBASE table file (.DBF) as this engine reads and writes it.
//
// All integers are little-endian.
//
//   HEADER (32 bytes)
//   OFFSET SIZE  MEANING
//      0     1   version: 0x03 no memo; 0xF5 with an .FPT memo (what we write for memo tables);
//                read also: 0x83 dBASE III with .DBT memo, 0x30/0x31/0x32 Visual FoxPro
//      1     3   date of last update: year, month, day; the year byte is year % 100 here,
//                and a reader takes a byte above 99 as 1900 + byte
//      4     4   record count, deleted records included
//      8     2   header length = offset of record 1
//     10     2   record length, the deletion byte included
//     12    16   reserved, zero
//     28     1   table flags: 0x01 a production compound index exists, 0x02 has memo (VFP)
//     29     1   code page mark: 0x03 = Windows-1252, what we write
//     30     2   reserved, zero
//
//   FIELD DESCRIPTOR (32 bytes each, from offset 32, ended by one byte 0x0D)
//      0    11   name, NUL-padded, at most 10 characters
//     11     1   type letter: C N F L D M, and from foreign files I B T Y G P 0 V Q W
//     12     4   offset of the field inside the record (the deletion byte is offset 0)
//     16     1   length
//     17     1   decimals
//     18     1   Visual FoxPro flags: 0x01 system column, 0x02 nullable, 0x04 binary
//     19    13   reserved / autoincrement state, zero
//
//   After the 0x0D terminator a Visual FoxPro table (0x30..0x32) has a 263-byte backlink; the
//   0x03 and 0xF5 tables we write have none: header length = 32 + 32 * fields + 1, which strict
//   readers demand.
//
//   RECORD: one deletion byte (' ' live, '*' deleted) and the fields in order, no separators.
//   After the last record stands one end-of-file byte 0x1A. Readers do not require it.
//
// Memo fields hold a block number: 10 ASCII digits right-aligned (blanks = no memo) in 0x83 and
// 0xF5 tables, a 4-byte little-endian integer (0 = no memo) in Visual FoxPro tables.
#pragma once

#include <cstdint>

namespace kvd::engine::dbf {

inline constexpr unsigned kHeaderSize = 32;
inline constexpr unsigned kFieldDescSize = 32;
inline constexpr unsigned kBacklinkSize = 263;
inline constexpr unsigned char kFieldTerminator = 0x0D;
inline constexpr unsigned char kEndOfFile = 0x1A;
inline constexpr unsigned char kLive = ' ';
inline constexpr unsigned char kDeleted = '*';

inline constexpr unsigned char kVersionPlain = 0x03;    // dBASE III / FoxPro, no memo
inline constexpr unsigned char kVersionDbtMemo = 0x83;  // dBASE III with .DBT memo
inline constexpr unsigned char kVersionFptMemo = 0xF5;  // FoxPro 2.x with .FPT memo
inline constexpr unsigned char kVersionVfp = 0x30;      // Visual FoxPro
inline constexpr unsigned char kVersionVfpAutoinc = 0x31;
inline constexpr unsigned char kVersionVfpVarchar = 0x32;

inline constexpr unsigned kOffVersion = 0;
inline constexpr unsigned kOffDate = 1;
inline constexpr unsigned kOffRecCount = 4;
inline constexpr unsigned kOffHeaderLen = 8;
inline constexpr unsigned kOffRecordLen = 10;
inline constexpr unsigned kOffFlags = 28;
inline constexpr unsigned kOffCodePage = 29;

inline constexpr unsigned char kFlagProductionIndex = 0x01;
inline constexpr unsigned char kFlagMemo = 0x02;
inline constexpr unsigned char kCodePageWindows1252 = 0x03;

// Field descriptor offsets.
inline constexpr unsigned kFdName = 0;
inline constexpr unsigned kFdNameLen = 11;
inline constexpr unsigned kFdType = 11;
inline constexpr unsigned kFdOffset = 12;
inline constexpr unsigned kFdLen = 16;
inline constexpr unsigned kFdDec = 17;
inline constexpr unsigned kFdFlags = 18;

inline constexpr unsigned kMaxFields = 255;       // FoxPro's limit
inline constexpr unsigned kMaxFieldName = 10;
inline constexpr unsigned kMaxRecordLen = 65500;  // what a 16-bit length leaves room for
inline constexpr unsigned kMemoPointerLen = 10;   // memo field width in 0x83 / 0xF5 tables

inline bool IsVisualFoxPro(unsigned char version) {
  return version == kVersionVfp || version == kVersionVfpAutoinc || version == kVersionVfpVarchar;
}

}  // namespace kvd::engine::dbf
