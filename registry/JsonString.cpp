#include "registry/JsonString.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace quelm {

namespace {

constexpr std::size_t longestValue = 4087;

// What a byte becomes: itself, a backslash and this letter, \u00XX, or the end of the value.
constexpr char copied = 0;
constexpr char numbered = 'u';
constexpr char ending = '$';

constexpr std::array<char, 256> makeForms() {
    std::array<char, 256> made{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) {
        made[byte] = numbered;
    }
    made['\0'] = ending;
    made['\b'] = 'b';
    made['\t'] = 't';
    made['\n'] = 'n';
    made['\f'] = 'f';
    made['\r'] = 'r';
    made['"'] = '"';
    made['\\'] = '\\';
    return made;
}
constexpr std::array<char, 256> forms = makeForms();

char formOf(char c) {
    return forms[static_cast<unsigned char>(c)];
}

void appendEscaped(std::string& output, char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const char form = formOf(c);
    output += '\\';
    output += form;
    if (form == numbered) {
        const auto byte = static_cast<unsigned char>(c);
        output += "00";
        output += digits[byte >> 4];
        output += digits[byte & 0x0fU];
    }
}

// False when the value is too long; the output then ends with a part of it.
bool appendEscapedValue(std::string& output, const char* value) {
    const std::size_t limit = output.size() + longestValue;
    for (const char* rest = value;; ++rest) {
        const char* const plain = rest;
        while (formOf(*rest) == copied) {
            ++rest;
        }
        const auto length = static_cast<std::size_t>(rest - plain);
        if (length > limit - output.size()) {
            return false;
        }
        output.append(plain, length);
        if (formOf(*rest) == ending) {
            return true;
        }
        appendEscaped(output, *rest);
        if (output.size() > limit) {
            return false;
        }
    }
}

} // namespace

void appendJsonString(std::string& output, const char* value) {
    const std::size_t start = output.size();
    if (value != nullptr) {
        output += '"';
        if (appendEscapedValue(output, value)) {
            output += '"';
            return;
        }
        output.resize(start);
    }
    output += "null";
}

} // namespace quelm
