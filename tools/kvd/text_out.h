// Turning table bytes into text for a terminal, a CSV file or JSON.
#pragma once

#include <string>
#include <string_view>

namespace kvd::tool {

// Table text is in the Windows-1252 code page; a terminal and JSON want UTF-8. Bytes with no
// Windows-1252 character are taken as the Latin-1 control character of the same number, so every
// byte survives the trip.
std::string Cp1252ToUtf8(std::string_view bytes);
// The way back, for text typed by a person: valid UTF-8 becomes Windows-1252 (false when it holds a
// character the code page lacks); bytes that are not valid UTF-8 are taken as they stand.
bool Utf8ToCp1252(std::string_view text, std::string* bytes);
std::string JsonString(std::string_view utf8);  // quoted, escaped
std::string CsvField(std::string_view utf8);    // quoted when it must be
std::string_view TrimRight(std::string_view s);
std::string_view Trim(std::string_view s);

}  // namespace kvd::tool
