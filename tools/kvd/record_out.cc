#include "tools/kvd/record_out.h"

#include <cstdio>

#include "tools/kvd/text_out.h"

namespace kvd::tool {

namespace {

bool IsMemo(FIELD4St* f) {
  const int t = f4type(f);
  return t == 'M' || t == 'G' || t == 'P' || (t == 'B' && f4len(f) == 10);
}

bool IsJsonNumber(int type) { return type == 'N' || type == 'F' || type == 'I' || type == 'Y' || type == 'B'; }

// A field's value as display text (UTF-8), and whether it is empty/null.
std::string Value(FIELD4St* f, bool* null) {
  const int t = f4type(f);
  *null = false;
  if (IsMemo(f)) {
    return Cp1252ToUtf8(std::string_view(f4memoPtr(f), f4memoLen(f)));
  }
  if (t == 'I' || t == 'Y' || (t == 'B' && f4len(f) == 8)) {
    char buf[64];
    std::snprintf(buf, sizeof buf, t == 'I' ? "%.0f" : "%.10g", f4double(f));
    return buf;
  }
  std::string_view raw(f4ptr(f), f4len(f));
  std::string_view v = (t == 'N' || t == 'F') ? Trim(raw) : TrimRight(raw);
  if (t == 'D' && v.size() == 8) {
    return std::string(v.substr(0, 4)) + "-" + std::string(v.substr(4, 2)) + "-" + std::string(v.substr(6, 2));
  }
  *null = v.empty() && t != 'C';
  if (t == 'L') {
    const char c = raw.empty() ? ' ' : raw[0];
    if (c == 'T' || c == 't' || c == 'Y' || c == 'y') return "true";
    if (c == 'F' || c == 'f' || c == 'N' || c == 'n') return "false";
    *null = true;
    return "";
  }
  return Cp1252ToUtf8(v);
}

}  // namespace

bool ParseFormat(const std::string& arg, Format* fmt) {
  if (arg == "--csv") *fmt = Format::kCsv;
  else if (arg == "--json") *fmt = Format::kJson;
  else return false;
  return true;
}

RecordWriter::RecordWriter(DATA4St* data, Format fmt) : data_(data), fmt_(fmt) {
  const int n = d4numFields(data);
  for (short j = 1; j <= n; ++j) fields_.push_back(d4fieldJ(data, j));
  if (fmt_ == Format::kCsv) {
    out_ = "_RECNO,_DELETED";
    for (FIELD4St* f : fields_) out_ += "," + CsvField(f4name(f));
    out_ += "\n";
  } else if (fmt_ == Format::kJson) {
    out_ = "[";
  } else {
    out_ = "#";
    for (FIELD4St* f : fields_) out_ += std::string(" | ") + f4name(f);
    out_ += "\n";
  }
}

void RecordWriter::Record() {
  const long rec = d4recNo(data_);
  const bool deleted = d4deleted(data_) != 0;
  if (fmt_ == Format::kCsv) {
    out_ += std::to_string(rec) + (deleted ? ",1" : ",0");
  } else if (fmt_ == Format::kJson) {
    out_ += count_ == 0 ? "\n" : ",\n";
    out_ += "{\"_recno\":" + std::to_string(rec) + ",\"_deleted\":" + (deleted ? "true" : "false");
  } else {
    out_ += std::to_string(rec) + (deleted ? "*" : "");
  }
  ++count_;
  for (FIELD4St* f : fields_) {
    bool null = false;
    const std::string v = Value(f, &null);
    if (fmt_ == Format::kCsv) {
      out_ += "," + CsvField(v);
    } else if (fmt_ == Format::kJson) {
      out_ += "," + JsonString(f4name(f)) + ":";
      const int t = f4type(f);
      if (null) out_ += "null";
      else if (t == 'L') out_ += v;
      else if (IsJsonNumber(t) && !IsMemo(f) && v.find('*') == std::string::npos) out_ += v;
      else out_ += JsonString(v);
    } else {
      out_ += " | " + v;
    }
  }
  out_ += fmt_ == Format::kJson ? "}" : "\n";
  if (out_.size() > (1u << 16)) {
    std::fwrite(out_.data(), 1, out_.size(), stdout);
    out_.clear();
  }
}

void RecordWriter::Finish() {
  if (fmt_ == Format::kJson) out_ += count_ == 0 ? "]\n" : "\n]\n";
  std::fwrite(out_.data(), 1, out_.size(), stdout);
  out_.clear();
}

}  // namespace kvd::tool
