// Reads JSON tokens from a text and decodes its strings in place.
#pragma once

#include <cstddef>
#include <string_view>

#include "registry/JsonError.h"

namespace quelm {

// Owns its position and its first error. Each step skips white space (the C locale's) and returns whether it
// found what it names; after a failure only error() may be called. Only bytes before the position are
// overwritten, so offsets are those of the original text.
class JsonReader {
public:
    // The outcome of a step into or through an object or array.
    enum class Next { item, end, failed };

    // `text` has a NUL byte at `size` and ends with its first one. It is overwritten while reading, and
    // outlives the reader and every string that it returned.
    JsonReader(char* text, std::size_t size) : begin_(text), end_(text + size), cursor_(text) {}

    // Steps to the value of the first or the next member and sets `name`. At `end` the position is the
    // closing bracket.
    Next openObject(std::string_view& name);
    Next nextMember(std::string_view& name);

    // The same for the elements of an array.
    Next openArray();
    Next nextElement();

    // Steps over the closing bracket.
    void close() { ++cursor_; }

    // A string. The escapes are \" \\ \/ \b \f \n \r \t and \u0000, which ends the value: the rest of the
    // string is checked and dropped.
    bool readString(std::string_view& value);
    bool readBoolean(bool& value);

    // Reads any value and drops it. Nesting costs one bit per level and no stack.
    bool skipValue();

    // Records the error at the present position. Always false.
    bool fail(JsonErrorCode code);

    const JsonError& error() const { return error_; }

private:
    void skipSpace();
    bool readName(std::string_view& name);
    bool decodeRest(char* start, std::string_view& value);
    bool decodeEscape(char& decoded);
    bool skipScalar();
    bool skipNumber();
    bool skipDigits();
    bool skipWord(std::string_view word, JsonErrorCode code);
    Next nextItem(bool inObject);

    char* begin_;
    const char* end_;
    char* cursor_;
    JsonError error_;
};

} // namespace quelm
