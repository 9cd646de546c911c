#include "lib/foundation/kvfail.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/env.h"

namespace {

constexpr unsigned kRingLines = 64;
constexpr std::size_t kLineBytes = 1024;

// The ring of the latest debug lines. A std::mutex is constant-initialised, so lines written by
// static constructors of other files find it ready.
struct DebugRing {
  std::mutex mtx;
  unsigned long count = 0;  // lines written; the latest lies at (count - 1) % kRingLines
  char lines[kRingLines][kLineBytes];
};
DebugRing g_ring;

bool ToStderr() {
  static const bool on = [] {
    const char* v = std::getenv("KVD_DEBUG_STDERR");
    return v != nullptr && *v != '\0' && *v != '0';
  }();
  return on;
}

}  // namespace

KvFailText::KvFailText(const char* text) {
  std::snprintf(_sz, sizeof _sz, "%s", text != nullptr ? text : "");
}

void KvFail(const char* text) {
  KvDebugLine(text);
  throw KvFailure(text);
}

void KvAssertFail(const char* statement, const char* source, unsigned line) {
  KvDebugLine(statement);
  char msg[kLineBytes];
  std::snprintf(msg, sizeof msg, "Internal data structures corrupted in\nfile: %s\nline: %u\nstatement: %s",
                source != nullptr ? source : "", line, statement != nullptr ? statement : "");
  kvd::platform::ShowMessage(msg, "ERROR", 16);
}

void KvDebugLine(const char* text) {
  if (text == nullptr) text = "";
  {
    std::lock_guard<std::mutex> lock(g_ring.mtx);
    std::snprintf(g_ring.lines[g_ring.count % kRingLines], kLineBytes, "%s", text);
    ++g_ring.count;
  }
  if (ToStderr()) std::fprintf(stderr, "%s\n", text);
}

void KvDebugLineF(const char* format, ...) {
  char line[kLineBytes];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(line, sizeof line, format, ap);
  va_end(ap);
  KvDebugLine(line);
}

bool KvDebugLastLine(unsigned n, char* out, std::size_t cb) {
  std::lock_guard<std::mutex> lock(g_ring.mtx);
  if (n >= kRingLines || n >= g_ring.count || out == nullptr || cb == 0) return false;
  std::snprintf(out, cb, "%s", g_ring.lines[(g_ring.count - 1 - n) % kRingLines]);
  return true;
}

unsigned long KvDebugLineCount() {
  std::lock_guard<std::mutex> lock(g_ring.mtx);
  return g_ring.count;
}
