#include "tools/kvd/reader.h"

#include <cstdio>

namespace kvd::tool {

Reader::Reader() {
  code4initLow(&code_, nullptr, 0, 0, 0);
  code_.autoOpen = 1;
  code_.errOpen = 1;
  code_.readOnly = 1;
}

Reader::~Reader() {
  d4close(data_);
  code4initUndo(&code_);
}

std::string Reader::LastError() {
  std::string text = error4text(&code_, code_.errorCode);
  const char* detail = error4lastDetail(&code_);
  if (*detail) text += std::string(" (") + detail + ")";
  return text;
}

bool Reader::Open(const std::string& name) {
  data_ = d4open(&code_, name.c_str());
  if (data_) return true;
  const std::string first = LastError();
  // Was it the index? Then the table alone still opens.
  error4set(&code_, 0);
  code_.autoOpen = 0;
  data_ = d4open(&code_, name.c_str());
  code_.autoOpen = 1;
  if (data_) {
    index_problem_ = first;
    std::fprintf(stderr, "kvd: warning: the index of %s cannot be read, going on without it: %s\n", name.c_str(),
                 first.c_str());
    return true;
  }
  std::fprintf(stderr, "kvd: %s is not a readable table: %s\n", name.c_str(), first.c_str());
  return false;
}

TAG4St* Reader::Tag(const std::string& name) {
  if (TAG4St* t = d4tag(data_, name.c_str())) return t;
  if (!d4tagNext(data_, nullptr)) {
    std::fprintf(stderr, "kvd: %s %s, so no tag '%s'\n", d4fileName(data_),
                 index_problem_.empty() ? "has no index" : "has an index that cannot be read", name.c_str());
    return nullptr;
  }
  std::string names;
  for (TAG4St* t = d4tagNext(data_, nullptr); t; t = d4tagNext(data_, t))
    names += std::string(names.empty() ? "" : ", ") + t4alias(t);
  std::fprintf(stderr, "kvd: %s has no tag '%s' (its tags: %s)\n", d4fileName(data_), name.c_str(), names.c_str());
  return nullptr;
}

}  // namespace kvd::tool
