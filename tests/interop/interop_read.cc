// interop_read TABLE...: reads tables with our engine and prints what it read as JSON on stdout,
// for a script that knows what another program wrote into them.
//
//   {"tables": [{"file", "record_count", "fields": [{"name", "type", "len", "dec"}],
//                "records": [{"recno", "deleted", "values": [...]}]}]}
// values[i] is, for a memo field, {"memo": hex of its exact bytes}; for any other field
// {"raw": the field's bytes as a JSON string of one character per byte, "number": f4double,
//  "true": f4true}.
// Every record is visited with d4top / d4skip. The exit status is 0 only when every table opened,
// the walk visited d4recCount records, and the engine reported no error on the way.
#include <cstdio>
#include <string>

#include "engine/d4all.h"
#include "tests/interop/interop_json.h"

namespace {

using kvd::interop::Hex;
using kvd::interop::Quote;

bool IsMemo(FIELD4St* f) {
  const int t = f4type(f);
  return t == 'M' || t == 'G' || t == 'P' || (t == 'B' && f4len(f) == 10);
}

// Returns false after printing what went wrong.
bool DumpTable(CODE4* code, const char* path, std::string* json) {
  DATA4St* d = d4open(code, path);
  if (!d) {
    std::fprintf(stderr, "interop_read: d4open %s: error %d %s\n", path, code->errorCode, error4lastDetail(code));
    *json += "null";
    return false;
  }
  const long count = d4recCount(d);
  const int n = d4numFields(d);
  std::string j = "{\"file\": " + Quote(path) + ", \"record_count\": " + std::to_string(count) + ",\n  \"fields\": [";
  for (short i = 1; i <= n; ++i) {
    FIELD4St* f = d4fieldJ(d, i);
    j += (i > 1 ? ", " : "") + std::string("{\"name\": ") + Quote(f4name(f)) + ", \"type\": \"" +
         static_cast<char>(f4type(f)) + "\", \"len\": " + std::to_string(f4len(f)) +
         ", \"dec\": " + std::to_string(f4decimals(f)) + "}";
  }
  j += "],\n  \"records\": [";
  long visited = 0;
  int rc = d4top(d);
  for (; rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
    j += visited ? ",\n    " : "\n    ";
    ++visited;
    j += "{\"recno\": " + std::to_string(d4recNo(d)) + ", \"deleted\": " + (d4deleted(d) ? "true" : "false") +
         ", \"values\": [";
    for (short i = 1; i <= n; ++i) {
      FIELD4St* f = d4fieldJ(d, i);
      j += i > 1 ? ", " : "";
      if (IsMemo(f)) {
        const unsigned len = f4memoLen(f);
        j += "{\"memo\": \"" + Hex(std::string(f4memoPtr(f), len)) + "\"}";
      } else {
        char num[64];
        std::snprintf(num, sizeof num, "%.17g", f4double(f));
        j += "{\"raw\": " + Quote(std::string(f4ptr(f), f4len(f))) + ", \"number\": " + num +
             ", \"true\": " + (f4true(f) ? "true" : "false") + "}";
      }
    }
    j += "]}";
  }
  j += "]}";
  bool ok = true;
  if (rc != 0 && rc != r4eof) {
    std::fprintf(stderr, "interop_read: walking %s: result %d %s\n", path, rc, error4lastDetail(code));
    ok = false;
  }
  if (visited != count) {
    std::fprintf(stderr, "interop_read: %s: visited %ld records of %ld\n", path, visited, count);
    ok = false;
  }
  if (code->errorCode != 0) {
    std::fprintf(stderr, "interop_read: %s: engine error %d %s\n", path, code->errorCode, error4lastDetail(code));
    ok = false;
  }
  if (d4close(d) != 0) ok = false;
  *json += j;
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: interop_read TABLE...\n");
    return 2;
  }
  CODE4 code;
  if (code4initLow(&code, nullptr, 0, sizeof(CODE4), 0) != 0) return 1;
  code.autoOpen = 0;
  code.readOnly = 1;
  bool ok = true;
  std::string json = "{\"tables\": [\n";
  for (int i = 1; i < argc; ++i) {
    if (i > 1) json += ",\n";
    ok = DumpTable(&code, argv[i], &json) && ok;
  }
  json += "\n]}\n";
  code4initUndo(&code);
  std::fputs(json.c_str(), stdout);
  return ok ? 0 : 1;
}
