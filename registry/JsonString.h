// The string form of the JSON that we write.
#pragma once

#include <string>

namespace quelm {

// Appends the value in double quotes. Control bytes become \b \t \n \f \r or \u00XX (which our own reader
// refuses: kept as it is), the quote and the backslash get a backslash, all other bytes are copied. A value
// that takes more than 4087 bytes in this form, quotes not counted, is replaced by a bare null, and so is a
// null pointer.
void appendJsonString(std::string& output, const char* value);

} // namespace quelm
