#include "registry/JsonReader.h"

#include <cstring>
#include <vector>

#include "registry/PlainBytes.h"

namespace quelm {

namespace {

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

bool JsonReader::fail(JsonErrorCode code) {
    error_.code = code;
    error_.offset = static_cast<std::size_t>(cursor_ - begin_);
    error_.character = static_cast<unsigned char>(*cursor_);
    return false;
}

inline void JsonReader::skipSpace() {
    while (isSpace(*cursor_)) {
        ++cursor_;
    }
}

JsonReader::Next JsonReader::openObject(std::string_view& name) {
    skipSpace();
    if (*cursor_ != '{') {
        fail(JsonErrorCode::objectExpected);
        return Next::failed;
    }
    ++cursor_;
    skipSpace();
    if (*cursor_ == '}') {
        return Next::end;
    }
    return readName(name) ? Next::item : Next::failed;
}

JsonReader::Next JsonReader::nextMember(std::string_view& name) {
    skipSpace();
    if (*cursor_ == '}') {
        return Next::end;
    }
    if (*cursor_ != ',') {
        fail(JsonErrorCode::objectSeparator);
        return Next::failed;
    }
    ++cursor_;
    return readName(name) ? Next::item : Next::failed;
}

bool JsonReader::readName(std::string_view& name) {
    if (!readString(name)) {
        return false;
    }
    skipSpace();
    if (*cursor_ != ':') {
        return fail(JsonErrorCode::colonExpected);
    }
    ++cursor_;
    return true;
}

JsonReader::Next JsonReader::openArray() {
    skipSpace();
    if (*cursor_ != '[') {
        fail(JsonErrorCode::arrayExpected);
        return Next::failed;
    }
    ++cursor_;
    skipSpace();
    return *cursor_ == ']' ? Next::end : Next::item;
}

JsonReader::Next JsonReader::nextElement() {
    skipSpace();
    if (*cursor_ == ']') {
        return Next::end;
    }
    if (*cursor_ != ',') {
        fail(JsonErrorCode::arraySeparator);
        return Next::failed;
    }
    ++cursor_;
    skipSpace();
    return Next::item;
}

bool JsonReader::readString(std::string_view& value) {
    skipSpace();
    if (*cursor_ != '"') {
        return fail(JsonErrorCode::stringExpected);
    }
    char* const start = ++cursor_;
    cursor_ += countPlain({start, static_cast<std::size_t>(end_ - start)});
    if (*cursor_ != '"') {
        return decodeRest(start, value);
    }
    value = {start, static_cast<std::size_t>(cursor_ - start)};
    ++cursor_;
    return true;
}

// Continues at the first byte that is not plain. The decoded text is written behind the cursor.
bool JsonReader::decodeRest(char* start, std::string_view& value) {
    char* decoded = cursor_;
    while (*cursor_ != '"') {
        if (isPlain(*cursor_)) {
            *decoded++ = *cursor_++;
        } else if (*cursor_ == '\\') {
            ++cursor_;
            if (!decodeEscape(*decoded++)) {
                return false;
            }
        } else {
            return fail(*cursor_ == '\0' ? JsonErrorCode::documentEnded : JsonErrorCode::controlCharacter);
        }
    }
    ++cursor_;
    *decoded = '\0';
    value = start;
    return true;
}

// The cursor is behind the backslash; `decoded` is the backslash or a byte before it.
bool JsonReader::decodeEscape(char& decoded) {
    constexpr std::string_view letters = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    constexpr std::string_view onlyUnicode = "u0000";
    if (*cursor_ == '\0') {
        return fail(JsonErrorCode::documentEnded);
    }
    if (*cursor_ == 'u') {
        if (std::strncmp(cursor_, onlyUnicode.data(), onlyUnicode.size()) != 0) {
            return fail(JsonErrorCode::unicodeEscape);
        }
        decoded = '\0';
        cursor_ += onlyUnicode.size();
        return true;
    }
    const std::size_t letter = letters.find(*cursor_);
    if (letter == std::string_view::npos) {
        return fail(JsonErrorCode::escapeSequence);
    }
    decoded = meanings[letter];
    ++cursor_;
    return true;
}

bool JsonReader::readBoolean(bool& value) {
    skipSpace();
    value = *cursor_ == 't';
    return skipWord(value ? "true" : "false", JsonErrorCode::booleanExpected);
}

bool JsonReader::skipWord(std::string_view word, JsonErrorCode code) {
    if (std::strncmp(cursor_, word.data(), word.size()) != 0) {
        return fail(code);
    }
    cursor_ += word.size();
    return true;
}

bool JsonReader::skipValue() {
    std::vector<bool> inObject; // one per bracket that is open
    std::string_view name;
    do {
        Next step = Next::end;
        skipSpace();
        if (*cursor_ == '{' || *cursor_ == '[') {
            inObject.push_back(*cursor_ == '{');
            step = inObject.back() ? openObject(name) : openArray();
        } else if (!skipScalar()) {
            return false;
        } else if (!inObject.empty()) {
            step = nextItem(inObject.back());
        }
        while (step == Next::end && !inObject.empty()) {
            close();
            inObject.pop_back();
            if (!inObject.empty()) {
                step = nextItem(inObject.back());
            }
        }
        if (step == Next::failed) {
            return false;
        }
    } while (!inObject.empty());
    return true;
}

JsonReader::Next JsonReader::nextItem(bool inObject) {
    std::string_view name;
    return inObject ? nextMember(name) : nextElement();
}

bool JsonReader::skipScalar() {
    std::string_view dropped;
    switch (*cursor_) {
    case '"':
        return readString(dropped);
    case 't':
        return skipWord("true", JsonErrorCode::booleanExpected);
    case 'f':
        return skipWord("false", JsonErrorCode::booleanExpected);
    case 'n':
        return skipWord("null", JsonErrorCode::nullExpected);
    case '\0':
        return fail(JsonErrorCode::documentEnded);
    default:
        return *cursor_ == '-' || isDigit(*cursor_) ? skipNumber() : fail(JsonErrorCode::valueExpected);
    }
}

bool JsonReader::skipNumber() {
    if (*cursor_ == '-') {
        ++cursor_;
    }
    if (!skipDigits()) {
        return false;
    }
    if (*cursor_ == '.') {
        ++cursor_;
        if (!skipDigits()) {
            return false;
        }
    }
    if (*cursor_ == 'e' || *cursor_ == 'E') {
        ++cursor_;
        if (*cursor_ == '+' || *cursor_ == '-') {
            ++cursor_;
        }
        return skipDigits();
    }
    return true;
}

// At least one digit; leading zeros are accepted.
bool JsonReader::skipDigits() {
    if (!isDigit(*cursor_)) {
        return fail(JsonErrorCode::numberFormat);
    }
    while (isDigit(*cursor_)) {
        ++cursor_;
    }
    return true;
}

} // namespace quelm
