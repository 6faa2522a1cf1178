// The string form of the JSON that we write.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace quelm {

// A value that takes more bytes in this form, quotes not counted, is replaced.
inline constexpr std::size_t longestJsonValue = 4087;

// Room that writeJsonString needs, whatever the value: it looks at the limit after each byte of it.
inline constexpr std::size_t jsonStringRoom = longestJsonValue + 8;

// Copies the text and returns the end of the copy.
inline char* writeText(char* output, std::string_view text) {
    return std::copy(text.begin(), text.end(), output);
}

// Writes the value in double quotes and returns the end of what it wrote. Control bytes become \b \t \n \f \r
// or \u00XX (which our own reader refuses: kept as it is), the quote and the backslash get a backslash, all
// other bytes are copied. The value ends at its first NUL byte. One that is too long is replaced by a bare
// null, and so is a null pointer.
char* writeJsonString(char* output, std::string_view value);

} // namespace quelm
