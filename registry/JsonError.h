// The errors of the registry reader and their report.
#pragma once

#include <cstddef>
#include <string>

namespace quelm {

// The numbers are part of the interface. Those without a comment of their own are raised by the reader.
enum class JsonErrorCode : unsigned {
    none = 0,
    containerEnded = 1, // never raised
    documentEnded = 2,
    valueExpected = 3,
    numberExpected = 4,   // never raised
    numberOutOfRange = 5, // never raised
    numberFormat = 6,
    stringExpected = 7,
    escapeSequence = 8,
    controlCharacter = 9,
    unicodeEscape = 10,
    objectExpected = 11,
    colonExpected = 12,
    objectSeparator = 13,
    requiredMissing = 14,
    arrayExpected = 15,
    arraySeparator = 16,
    booleanExpected = 17,
    nullExpected = 18,
    nullUnexpected = 19, // never raised
    outOfMemory = 20,
    unknownField = 21,   // never raised: unknown members are dropped
    duplicateField = 22, // never raised: the later member wins
    constraint = 23,     // never raised
};

struct JsonError {
    JsonErrorCode code = JsonErrorCode::none;
    std::size_t offset = 0;       // where the reader stopped, in bytes from the start of the text
    unsigned char character = 0;  // the byte there; 0 at the end of the text
    const char* detail = nullptr; // what the codes 21 to 23 name; null reads "N/A". Not owned.
};

// The message of the code, the offset, the character and, unless errno is 0, the system's error: at most 1023
// bytes, cut there. "OK, no error." and "unknown error code" stand alone. All but the system's error end in a
// blank.
std::string formatJsonError(const JsonError& error);

} // namespace quelm
