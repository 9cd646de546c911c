// Fields: reading and assigning values in the record buffer, memo contents.
#include <cmath>
#include <cstring>
#include <string>

#include "engine/codec.h"
#include "engine/d4all.h"
#include "engine/data4_impl.h"
#include "engine/memo_ptr.h"
#include "engine/number.h"

namespace kvd::engine {
namespace {

char* Bytes(FIELD4St* f) { return f->data->record.data() + f->layout.offset; }
std::string_view Text(FIELD4St* f) { return std::string_view(Bytes(f), f->layout.len); }

bool IsNumeric(char type) { return type == 'N' || type == 'F'; }

// Loads the current record's memo into the field unless it is there already.
int LoadMemo(FIELD4St* f) {
  if (f->memo_loaded) return 0;
  DATA4St* d = f->data;
  f->memo.clear();
  if (!d->memo) return SetError(d->code, e4memo, "table has memo fields but no memo file");
  Status s = d->memo->Read(ReadMemoPointer(Bytes(f), f->layout.len), &f->memo);
  if (!s.ok()) return SetError(d->code, e4memo, s);
  f->memo_loaded = true;
  return 0;
}

// The value of a binary (Visual FoxPro) number field.
double BinaryValue(FIELD4St* f) {
  const char* p = Bytes(f);
  switch (f->layout.type) {
    case 'I': return static_cast<std::int32_t>(GetLE32(p));
    case 'B': {
      std::uint64_t bits = GetLE64(p);
      double v;
      std::memcpy(&v, &bits, sizeof v);
      return v;
    }
    case 'Y': return static_cast<double>(static_cast<std::int64_t>(GetLE64(p))) / 10000.0;
    default: return 0;
  }
}

bool IsBinaryNumber(const FieldLayout& l) { return l.type == 'I' || l.type == 'Y' || (l.type == 'B' && l.len == 8); }

void AssignBinary(FIELD4St* f, double v) {
  char* p = Bytes(f);
  switch (f->layout.type) {
    case 'I': PutLE32(p, static_cast<std::uint32_t>(static_cast<std::int32_t>(std::llround(v)))); break;
    case 'B': {
      std::uint64_t bits;
      std::memcpy(&bits, &v, sizeof v);
      PutLE32(p, static_cast<std::uint32_t>(bits));
      PutLE32(p + 4, static_cast<std::uint32_t>(bits >> 32));
      break;
    }
    case 'Y': {
      const std::int64_t c = std::llround(v * 10000.0);
      PutLE32(p, static_cast<std::uint32_t>(c));
      PutLE32(p + 4, static_cast<std::uint32_t>(static_cast<std::uint64_t>(c) >> 32));
      break;
    }
  }
}

// Stores text blank-padded or cut; memo fields take it as their content.
void AssignText(FIELD4St* f, const char* text, std::size_t n) {
  if (IsMemoField(*f)) {
    f->memo.assign(text, n);
    f->memo_loaded = true;
    f->memo_changed = true;
  } else {
    const std::size_t w = f->layout.len;
    std::memcpy(Bytes(f), text, n < w ? n : w);
    if (n < w) std::memset(Bytes(f) + n, ' ', w - n);
  }
  MarkChanged(f->data);
}

void AssignNumber(FIELD4St* f, double v, bool integral) {
  if (IsBinaryNumber(f->layout)) {
    AssignBinary(f, v);
  } else if (IsMemoField(*f)) {
    char buf[64];
    std::snprintf(buf, sizeof buf, integral ? "%.0f" : "%g", v);
    AssignText(f, buf, std::strlen(buf));
    return;
  } else if (integral && !(IsNumeric(f->layout.type) && f->layout.dec > 0)) {
    FormatInteger(static_cast<long long>(v), f->layout.len, Bytes(f));
  } else {
    FormatNumber(v, f->layout.len, IsNumeric(f->layout.type) ? f->layout.dec : 0, Bytes(f));
  }
  MarkChanged(f->data);
}

bool IsBlank(std::string_view t) { return t.find_first_not_of(' ') == std::string_view::npos; }

}  // namespace
}  // namespace kvd::engine

using namespace kvd::engine;

extern "C" {

const char* f4name(FIELD4St* f) { return f ? f->layout.name.c_str() : ""; }
int f4type(FIELD4St* f) { return f ? f->layout.type : 0; }
unsigned long f4len(FIELD4St* f) { return f ? f->layout.len : 0; }
int f4decimals(FIELD4St* f) { return f ? f->layout.dec : 0; }
DATA4St* f4data(FIELD4St* f) { return f ? f->data : nullptr; }
char* f4ptr(FIELD4St* f) { return f ? Bytes(f) : nullptr; }

int f4char(FIELD4St* f) { return f ? static_cast<unsigned char>(Bytes(f)[0]) : 0; }

double f4double(FIELD4St* f) {
  if (!f) return 0;
  if (IsBinaryNumber(f->layout)) return BinaryValue(f);
  if (IsMemoField(*f)) return LoadMemo(f) ? 0 : ParseDouble(f->memo);
  return ParseDouble(Text(f));
}

long f4long(FIELD4St* f) {
  if (!f) return 0;
  if (IsBinaryNumber(f->layout)) {
    const double v = BinaryValue(f);
    if (std::isnan(v)) return 0;
    return v > 2147483647.0 ? 2147483647l : v < -2147483648.0 ? -2147483647l - 1 : static_cast<long>(v);
  }
  if (IsMemoField(*f)) return LoadMemo(f) ? 0 : ParseLong(f->memo);
  return ParseLong(Text(f));
}

int f4int(FIELD4St* f) { return static_cast<int>(f4long(f)); }

int f4true(FIELD4St* f) {
  if (!f) return 0;
  const char c = Bytes(f)[0];
  return c == 'T' || c == 't' || c == 'Y' || c == 'y';
}

char* f4str(FIELD4St* f) {
  if (!f) return nullptr;
  if (IsMemoField(*f)) {
    LoadMemo(f);
    f->text = f->memo;
  } else {
    f->text.assign(Bytes(f), f->layout.len);
  }
  return f->text.data();
}

unsigned f4ncpy(FIELD4St* f, char* buf, unsigned size) {
  if (!f || !buf || size == 0) return 0;
  std::string_view t = Text(f);
  if (IsMemoField(*f)) {
    if (LoadMemo(f)) {
      buf[0] = 0;
      return 0;
    }
    t = f->memo;
  }
  const unsigned n = static_cast<unsigned>(t.size() < size - 1 ? t.size() : size - 1);
  std::memcpy(buf, t.data(), n);
  buf[n] = 0;
  return n;
}

void f4assign(FIELD4St* f, const char* text) {
  if (!f) return;
  if (!text) text = "";
  AssignText(f, text, std::strlen(text));
}

void f4assignN(FIELD4St* f, const char* bytes, unsigned len) {
  if (!f) return;
  AssignText(f, bytes ? bytes : "", bytes ? len : 0);
}

void f4assignChar(FIELD4St* f, int c) {
  if (!f) return;
  const char ch = static_cast<char>(c);
  AssignText(f, &ch, 1);
}

void f4assignInt(FIELD4St* f, int v) {
  if (f) AssignNumber(f, v, true);
}
void f4assignLong(FIELD4St* f, long v) {
  if (f) AssignNumber(f, static_cast<double>(v), true);
}
void f4assignDouble(FIELD4St* f, double v) {
  if (f) AssignNumber(f, v, false);
}

void f4blank(FIELD4St* f) {
  if (!f) return;
  if (IsBinaryField(f->layout) && !IsMemoField(*f)) {
    std::memset(Bytes(f), 0, f->layout.len);
    MarkChanged(f->data);
  } else {
    AssignText(f, "", 0);
  }
}

// Copies one field's value into another of any type and width: texts are cut or padded, numbers
// converted and re-formatted to the target's width and decimals (a blank number stays blank; one
// too wide for the target becomes '*'), memo contents carried as bytes.
void f4assignField(FIELD4St* to, FIELD4St* from) {
  if (!to || !from) return;
  const FieldLayout& t = to->layout;
  const FieldLayout& s = from->layout;
  if (IsMemoField(*from)) {
    if (LoadMemo(from)) return;
    const std::string content = from->memo;
    if (IsNumeric(t.type) || IsBinaryNumber(t)) {
      if (IsBlank(content)) f4blank(to);
      else AssignNumber(to, ParseDouble(content), false);
    } else {
      AssignText(to, content.data(), content.size());
    }
    return;
  }
  if (IsBinaryNumber(s) || ((IsNumeric(t.type) || IsBinaryNumber(t)) && s.type != 'D' && s.type != 'L')) {
    if (!IsBinaryNumber(s) && IsBlank(Text(from))) {
      f4blank(to);
      return;
    }
    const double v = IsBinaryNumber(s) ? BinaryValue(from) : ParseDouble(Text(from));
    if (IsNumeric(t.type) || IsBinaryNumber(t) || IsMemoField(*to)) {
      AssignNumber(to, v, false);
    } else {
      // A binary number into a text field: its decimal text, right-aligned.
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.*f", s.type == 'Y' ? 4 : (s.type == 'I' ? 0 : 6), v);
      std::string txt(buf);
      if (txt.find('.') != std::string::npos) {
        while (txt.back() == '0') txt.pop_back();
        if (txt.back() == '.') txt.pop_back();
      }
      if (txt.size() > t.len) txt.assign(t.len, '*');
      std::string padded(t.len - txt.size(), ' ');
      padded += txt;
      AssignText(to, padded.data(), padded.size());
    }
    return;
  }
  // Text to text (C, D, L, N and F as their stored characters).
  std::string_view v = Text(from);
  AssignText(to, v.data(), v.size());
}

unsigned f4memoLen(FIELD4St* f) {
  if (!f) return 0;
  if (!IsMemoField(*f)) return static_cast<unsigned>(f->layout.len);
  return LoadMemo(f) ? 0 : static_cast<unsigned>(f->memo.size());
}

char* f4memoPtr(FIELD4St* f) {
  if (!f) return nullptr;
  if (!IsMemoField(*f)) return f4str(f);
  LoadMemo(f);
  return f->memo.data();
}

const char* f4memoStr(FIELD4St* f) { return f4memoPtr(f); }

int f4memoAssignN(FIELD4St* f, const char* bytes, unsigned len) {
  if (!f) return e4parm;
  AssignText(f, bytes ? bytes : "", bytes ? len : 0);
  return 0;
}

int f4memoAssign(FIELD4St* f, const char* text) {
  return f4memoAssignN(f, text, text ? static_cast<unsigned>(std::strlen(text)) : 0);
}

int f4memoSetLen(FIELD4St* f, unsigned len) {
  if (!f) return e4parm;
  if (!IsMemoField(*f)) return SetError(f->data->code, e4fieldType, "f4memoSetLen on a field that is not a memo");
  if (int rc = LoadMemo(f)) return rc;
  f->memo.resize(len, '\0');
  f->memo_changed = true;
  MarkChanged(f->data);
  return 0;
}

}  // extern "C"
