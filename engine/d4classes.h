// The engine's C++ classes: thin handles over the C interface of d4all.h, for the code that works
// with tables as objects (structure adaption, the object store). They own nothing unless said:
// a Data4 is a handle that close() or remove() ends; copying one copies the handle.
#pragma once

#include <string>
#include <vector>

#include "engine/d4all.h"

class Field4 {
 public:
  Field4() = default;
  explicit Field4(FIELD4St* f) : f_(f) {}
  Field4(struct Data4& data, const char* name);
  Field4(struct Data4& data, int j);  // 1-based

  bool isValid() const { return f_ != nullptr; }
  FIELD4St* field() const { return f_; }
  const char* name() const { return f4name(f_); }
  int type() const { return f4type(f_); }
  unsigned long len() const { return f4len(f_); }
  int decimals() const { return f4decimals(f_); }
  char* ptr() const { return f4ptr(f_); }
  // The field's text with trailing blanks removed (valid until the next call on this field).
  const char* str() const;
  void changed() { d4changed(f4data(f_), 1); }
  void assign(const char* text) { f4assign(f_, text); }
  void assign(const char* bytes, unsigned len) { f4assignN(f_, bytes, len); }
  void assignLong(long v) { f4assignLong(f_, v); }
  void assignDouble(double v) { f4assignDouble(f_, v); }
  void assignField(const Field4& from) { f4assignField(f_, from.f_); }
  long getLong() const { return f4long(f_); }
  double getDouble() const { return f4double(f_); }

 protected:
  FIELD4St* f_ = nullptr;
};

// A memo field: exact byte lengths.
class Field4memo : public Field4 {
 public:
  Field4memo() = default;
  explicit Field4memo(FIELD4St* f) : Field4(f) {}
  explicit Field4memo(const Field4& f) : Field4(f.field()) {}
  unsigned len() const { return f4memoLen(f_); }
  int setLen(unsigned n) { return f4memoSetLen(f_, n); }
  char* ptr() const { return f4memoPtr(f_); }
  int assign(const char* bytes, unsigned n) { return f4memoAssignN(f_, bytes, n); }
};

struct Data4 {
  Data4() = default;
  explicit Data4(DATA4St* d) : data_(d) {}
  Data4(Code4& code, const char* name) : data_(d4open(&code, name)) {}

  int open(Code4& code, const char* name) {
    data_ = d4open(&code, name);
    return data_ ? 0 : (code.errorCode ? code.errorCode : r4noOpen);
  }
  int create(Code4& code, const char* name, const FIELD4INFO* fields, const TAG4INFO* tags = nullptr) {
    data_ = d4create(&code, name, fields, tags);
    return data_ ? 0 : (code.errorCode ? code.errorCode : e4create);
  }
  int close() {
    const int rc = d4close(data_);
    data_ = nullptr;
    return rc;
  }
  int remove() {
    const int rc = d4remove(data_);
    data_ = nullptr;
    return rc;
  }
  bool isValid() const { return data_ != nullptr; }
  DATA4St* dat() const { return data_; }
  operator DATA4St*() const { return data_; }

  const char* fileName() const { return d4fileName(data_); }
  int numFields() const { return d4numFields(data_); }
  int top() { return d4top(data_); }
  int bottom() { return d4bottom(data_); }
  int skip(long n = 1) { return d4skip(data_, n); }
  int go(long rec) { return d4go(data_, rec); }
  int eof() const { return d4eof(data_); }
  long recNo() const { return d4recNo(data_); }
  long recCount() const { return d4recCount(data_); }
  int appendStart(int useMemo = 0) { return d4appendStart(data_, useMemo); }
  int append() { return d4append(data_); }
  int appendBlank() { return d4appendBlank(data_); }
  void blank() { d4blank(data_); }
  void deleteRec() { d4delete(data_); }
  void recall() { d4recall(data_); }
  int deleted() const { return d4deleted(data_); }
  int flush() { return d4flush(data_); }
  int pack() { return d4pack(data_); }
  int lock(long rec) { return d4lock(data_, rec); }
  int lockAll() { return d4lockAll(data_); }
  int lockAppend() { return d4lockAppend(data_); }
  int unlock() { return d4unlock(data_); }
  int changed(int flag) { return d4changed(data_, flag); }

 private:
  DATA4St* data_ = nullptr;
};

inline Field4::Field4(Data4& data, const char* name) : f_(d4field(data.dat(), name)) {}
inline Field4::Field4(Data4& data, int j) : f_(d4fieldJ(data.dat(), static_cast<short>(j))) {}

// A list of field definitions that owns its names: made empty, or from an open table's fields.
// fields() gives the rows ending with a null name, ready for d4create.
class Field4info {
 public:
  Field4info() { Terminate(); }
  explicit Field4info(Code4&) { Terminate(); }
  explicit Field4info(Data4& data);
  Field4info(const Field4info& other) { CopyFrom(other); }
  Field4info& operator=(const Field4info& other) {
    if (this != &other) CopyFrom(other);
    return *this;
  }

  // Adds a row; the name is copied. Returns 0, or e4parm for a null or over-long name.
  int add(const char* name, char type, int len = 0, int dec = 0, unsigned short nulls = 0);
  int add(const Field4& f) { return add(f.name(), static_cast<char>(f.type()), static_cast<int>(f.len()), f.decimals()); }
  int del(int index);           // 0-based; e4parm out of range
  int del(const char* name);    // by name ignoring case; e4fieldName when absent
  void free() {
    names_.clear();
    rows_.clear();
    Terminate();
  }
  int numFields() const { return static_cast<int>(rows_.size()) - 1; }
  const FIELD4INFO* fields() const { return rows_.data(); }
  const FIELD4INFO& operator[](int i) const { return rows_[static_cast<std::size_t>(i)]; }

 private:
  void Terminate() { rows_.push_back(FIELD4INFO{nullptr, 0, 0, 0, 0}); }
  void Relink();  // points the rows at the stored names again
  void CopyFrom(const Field4info& other);
  std::vector<std::string> names_;
  std::vector<FIELD4INFO> rows_;
};
