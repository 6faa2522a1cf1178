#include "registry/JsonString.h"

#include <array>

#include "registry/PlainBytes.h"

namespace quelm {

namespace {

// What follows the backslash for a byte that is not plain; behind this letter comes the number of the byte.
constexpr char numbered = 'u';

constexpr std::array<char, 256> makeForms() {
    std::array<char, 256> made{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) {
        made[byte] = numbered;
    }
    made['\b'] = 'b';
    made['\t'] = 't';
    made['\n'] = 'n';
    made['\f'] = 'f';
    made['\r'] = 'r';
    made['"'] = '"';
    made['\\'] = '\\';
    return made;
}
constexpr auto forms = makeForms();

char* writeEscaped(char* output, char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    *output++ = '\\';
    *output++ = forms[byte];
    if (forms[byte] == numbered) {
        output = writeText(output, "00");
        *output++ = digits[byte >> 4];
        *output++ = digits[byte & 0x0fU];
    }
    return output;
}

// Null when the value is too long.
char* writeEscapedValue(char* output, std::string_view value) {
    const char* const limit = output + longestJsonValue;
    for (const char c : value.substr(0, value.find('\0'))) {
        if (isPlain(c)) {
            *output++ = c;
        } else {
            output = writeEscaped(output, c);
        }
        if (output > limit) {
            return nullptr;
        }
    }
    return output;
}

// Null when the value is too long. Few values need an escape; the others are copied as they are.
char* writeValue(char* output, std::string_view value) {
    if (value.size() <= longestJsonValue &&
        findNotPlain(value.data(), value.data() + value.size()) == value.data() + value.size()) {
        return writeText(output, value);
    }
    return writeEscapedValue(output, value);
}

} // namespace

char* writeJsonString(char* output, std::string_view value) {
    if (value.data() != nullptr) {
        *output = '"';
        if (char* const end = writeValue(output + 1, value)) {
            *end = '"';
            return end + 1;
        }
    }
    return writeText(output, "null");
}

} // namespace quelm
