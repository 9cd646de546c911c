// The fixed table the index fuzz target (cdx_fuzz.cc) opens every input against, shared with the
// program that writes its seed corpus (make_cdx_corpus.cc): the seeds are indexes of this very
// table, so their key expressions parse and their key lengths agree with its fields.
//
//   ID     C 10   "ID0001" ... ; one blank
//   NAME   C 20   a few names in mixed case with repeats, one blank, one of the full width, one
//                 with bytes above 0x7F
//   VALUE  N 9 3  negative, zero and positive, with fractions; one blank
//   DAY    D      dates in 2023 and 2024; one blank
// Every sixth record is deleted (for tags filtered with .NOT. DELETED()).
#pragma once

#include <cstdio>
#include <string>

#include "engine/d4all.h"

namespace kvd::fuzz {

inline constexpr int kCdxTableRecords = 30;

inline const FIELD4INFO kCdxTableFields[] = {
    {"ID", 'C', 10, 0, 0}, {"NAME", 'C', 20, 0, 0}, {"VALUE", 'N', 9, 3, 0}, {"DAY", 'D', 8, 0, 0},
    {nullptr, 0, 0, 0, 0}};

// Fills the record buffer with the values of record i (1-based) of the fixed table. Tables of more
// records (the corpus program's "larger" index) go on with the same pattern.
inline void FillCdxTableRecord(DATA4St* d, int i) {
  static const char* const kNames[] = {"Meier",  "adams",  "Zoe",  "meier",   "Brandt", "",
                                       "Adams",  "O'Neil", "zoe",  "Meier",   "Kr\xf6ger",
                                       "Abcdefghijklmnopqrst"};
  char buf[32];
  if (i == 11) {
    f4assign(d4field(d, "ID"), "");
  } else {
    std::snprintf(buf, sizeof buf, "ID%04d", i);
    f4assign(d4field(d, "ID"), buf);
  }
  f4assign(d4field(d, "NAME"), kNames[i % (sizeof kNames / sizeof kNames[0])]);
  if (i == 7) {
    f4assign(d4field(d, "VALUE"), "");
  } else {
    f4assignDouble(d4field(d, "VALUE"), (i * 37 % 101 - 50) + (i % 4) * 0.125);
  }
  if (i == 5) {
    f4assign(d4field(d, "DAY"), "");
  } else {
    std::snprintf(buf, sizeof buf, "%04d%02d%02d", 2023 + i % 2, 1 + i * 5 % 12, 1 + i * 7 % 28);
    f4assign(d4field(d, "DAY"), buf);
  }
}

// Whether record i of the fixed table is deleted.
inline bool CdxTableRecordDeleted(int i) { return i % 6 == 0; }

// Creates (replacing) the table at `path` with `records` records and leaves it open. Null on
// failure, with the engine's error in `code`. The caller closes it.
inline DATA4St* MakeCdxTable(CODE4* code, const std::string& path, int records) {
  DATA4St* d = d4create(code, path.c_str(), kCdxTableFields, nullptr);
  if (d == nullptr) return nullptr;
  for (int i = 1; i <= records; ++i) {
    if (d4appendStart(d, 0) != 0) {
      d4close(d);
      return nullptr;
    }
    d4blank(d);
    FillCdxTableRecord(d, i);
    int rc = d4append(d);
    if (rc == 0 && CdxTableRecordDeleted(i)) {
      d4delete(d);
      rc = d4flush(d);
    }
    if (rc != 0) {
      d4close(d);
      return nullptr;
    }
  }
  if (d4flush(d) != 0) {
    d4close(d);
    return nullptr;
  }
  return d;
}

}  // namespace kvd::fuzz
