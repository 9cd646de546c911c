#include "engine/d4classes.h"

#include <cctype>
#include <cstring>

#include "platform/ascii.h"

const char* Field4::str() const {
  char* s = f4str(f_);
  std::size_t n = std::strlen(s);
  while (n > 0 && s[n - 1] == ' ') s[--n] = '\0';
  return s;
}

Field4info::Field4info(Data4& data) {
  Terminate();
  for (int j = 1; j <= data.numFields(); ++j) add(Field4(data, j));
}

void Field4info::Relink() {
  for (std::size_t i = 0; i < names_.size(); ++i) rows_[i].name = names_[i].c_str();
}

void Field4info::CopyFrom(const Field4info& other) {
  names_ = other.names_;
  rows_ = other.rows_;
  Relink();
}

int Field4info::add(const char* name, char type, int len, int dec, unsigned short nulls) {
  if (!name || !*name || std::strlen(name) > 10 || len < 0 || dec < 0) return e4parm;
  names_.emplace_back(name);
  rows_.insert(rows_.end() - 1, FIELD4INFO{nullptr, type, static_cast<unsigned short>(len),
                                           static_cast<unsigned short>(dec), nulls});
  Relink();
  return 0;
}

int Field4info::del(int index) {
  if (index < 0 || index >= numFields()) return e4parm;
  names_.erase(names_.begin() + index);
  rows_.erase(rows_.begin() + index);
  Relink();
  return 0;
}

int Field4info::del(const char* name) {
  for (int i = 0; name && i < numFields(); ++i) {
    const std::string& n = names_[static_cast<std::size_t>(i)];
    if (kvd::platform::EqualNoCaseAscii(n, name))
      return del(i);
  }
  return e4fieldName;
}
