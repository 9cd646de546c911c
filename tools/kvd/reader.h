// One engine state per kvd command, with its table opened read only.
#pragma once

#include <string>

#include "engine/d4all.h"

namespace kvd::tool {

class Reader {
 public:
  Reader();
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // Opens the table together with its production index (the .CDX of the same name that the table
  // header announces). An index that cannot be read does not keep the table from being read: the
  // table is opened without it, a warning goes to standard error and index_problem() says why.
  // When the table itself cannot be read, says why on standard error and returns false.
  bool Open(const std::string& name);
  DATA4St* data() { return data_; }
  CODE4* code() { return &code_; }
  const std::string& index_problem() const { return index_problem_; }

  // The tag of that name (case ignored); null, with a message on standard error, when absent.
  TAG4St* Tag(const std::string& name);

  // The engine's latest error as one line ("what (detail)").
  std::string LastError();

 private:
  CODE4 code_;
  DATA4St* data_ = nullptr;
  std::string index_problem_;
};

}  // namespace kvd::tool
