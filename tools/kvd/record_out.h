// Records of a table as text, CSV or JSON: the forms of kvd dump, used by every command that
// shows records.
#pragma once

#include <string>
#include <vector>

#include "engine/d4all.h"

namespace kvd::tool {

enum class Format { kText, kCsv, kJson };

// Takes "--csv" or "--json" into `fmt`; false for any other argument.
bool ParseFormat(const std::string& arg, Format* fmt);

// Writes a head (the field names, or "[" for JSON), then one entry per call of Record() for the
// table's current record, and with Finish() the tail. Output goes to standard output in pieces.
class RecordWriter {
 public:
  RecordWriter(DATA4St* data, Format fmt);
  void Record();
  void Finish();
  int count() const { return count_; }

 private:
  DATA4St* data_;
  Format fmt_;
  std::vector<FIELD4St*> fields_;
  std::string out_;
  int count_ = 0;
};

}  // namespace kvd::tool
