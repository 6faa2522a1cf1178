#include "lib/process/lib/ShellText.h"

#include <array>
#include <string_view>

namespace quelm {

namespace {

enum class ByteClass : unsigned char { kept, escaped, newline };

constexpr std::array<ByteClass, 256> classes = [] {
    std::array<ByteClass, 256> table{};
    for (const char byte : std::string_view("\t \"#$&'()*;<>?[\\`|~")) {
        table[static_cast<unsigned char>(byte)] = ByteClass::escaped;
    }
    table['\n'] = ByteClass::newline;
    return table;
}();

void appendQuoted(std::string& text, std::string_view argument) {
    if (argument.empty()) {
        text += "''";
        return;
    }
    for (const char byte : argument) {
        const ByteClass kind = classes[static_cast<unsigned char>(byte)];
        if (kind == ByteClass::newline) {
            text += "'\n'";
            continue;
        }
        if (kind == ByteClass::escaped) {
            text += '\\';
        }
        text += byte;
    }
}

} // namespace

std::string shellText(const std::vector<char*>& arguments) {
    std::string text;
    bool first = true;
    for (const char* argument : arguments) {
        if (argument == nullptr) {
            break;
        }
        if (!first) {
            text += ' ';
        }
        first = false;
        appendQuoted(text, argument);
    }
    return text;
}

} // namespace quelm
