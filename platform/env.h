// The process and its surroundings: executable directory, profile (.INI) files, time of day,
// sleeping, and the replacement of the message box.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvd::platform {

// Directory of the running program's executable (from /proc/self/exe), with a trailing '/'.
// Empty when it cannot be found.
std::string ExecutableDir();

// Profile files in the Windows .INI form: "[Section]" lines, "key=value" lines, ';' comments.
// Section and key names compare ignoring ASCII case; the value is trimmed of blanks and of one pair
// of enclosing double quotes. A missing file, section or key gives the default.
// ReadProfileString cuts the value to at most max_len - 1 characters (like a buffer of max_len).
std::string ReadProfileString(std::string_view file, std::string_view section, std::string_view key,
                              std::string_view def, std::size_t max_len);
// The value read as a decimal integer with optional sign; a value that does not start with a number
// gives 0, a missing one the default.
int ReadProfileInt(std::string_view file, std::string_view section, std::string_view key, int def);
// Writes or replaces key=value in the section (creating file and section as needed); value
// nullptr deletes the key. The file is rewritten through a temporary name and a rename.
bool WriteProfileString(std::string_view file, std::string_view section, std::string_view key,
                        const char* value);

struct LocalTime {
  int year;    // e.g. 2026
  int month;   // 1..12
  int day;     // 1..31
  int hour;    // 0..23
  int minute;  // 0..59
  int second;  // 0..59
  int millis;  // 0..999
  int weekday; // 0 = Sunday
};
LocalTime NowLocal();
LocalTime NowUtc();
std::uint64_t MonotonicMillis();  // for timeouts; never goes back
void SleepMillis(unsigned ms);     // 0 yields the processor
unsigned long ProcessId();         // of the calling process (a forked child has its own)

// There is no desktop to show a message box on. The text, caption and a note of the style go to
// standard error as one line "[caption] text", and the answer is the one a person pressing the
// default button gives: 1 (OK). Returns that answer.
int ShowMessage(std::string_view text, std::string_view caption, unsigned style);

}  // namespace kvd::platform
