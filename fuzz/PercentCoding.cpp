// Any bytes as a display name and as its encoded form, against coders written out by hand.
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "fuzz/Require.h"
#include "fuzz/Target.h"
#include "registry/DisplayName.h"

namespace quelm::fuzz {

namespace {

constexpr std::string_view upperDigits = "0123456789ABCDEF";
constexpr std::string_view plainBytes = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

std::string encode(std::string_view name) {
    std::string encoded;
    for (const char c : name) {
        if (plainBytes.find(c) != std::string_view::npos) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += {'%', upperDigits[byte >> 4], upperDigits[byte & 0x0fU]};
    }
    return encoded;
}

// Not a digit gives 16.
unsigned digitValue(char c) {
    const char upper = c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
    return static_cast<unsigned>(std::min<std::size_t>(upperDigits.find(upper), 16));
}

std::string decode(std::string_view encoded) {
    std::string name;
    for (std::size_t at = 0; at < encoded.size(); ++at) {
        if (encoded[at] == '%' && at + 2 < encoded.size()) {
            const unsigned high = digitValue(encoded[at + 1]);
            const unsigned low = digitValue(encoded[at + 2]);
            if (high < 16 && low < 16) {
                name += static_cast<char>(high << 4 | low);
                at += 2;
                continue;
            }
        }
        name += encoded[at];
    }
    return name;
}

std::string expand(std::string_view name, std::string_view version) {
    constexpr std::string_view placeholder = "$version";
    std::string expanded;
    while (!name.empty()) {
        const bool found = name.starts_with(placeholder);
        expanded += found ? version : name.substr(0, 1);
        name.remove_prefix(found ? placeholder.size() : 1);
    }
    return expanded;
}

std::string unescaped(const std::string& text) {
    std::string decoded = text;
    return std::string(unescapeDisplayName(decoded));
}

void checkCoding(const std::string& text) {
    PhpHandler handler;
    handler.displayname = text;
    const std::string encoded = escapedDisplayName(handler);
    require(encoded == encode(text), "encoding leaves letters, digits and -._~ alone");
    require(unescaped(encoded) == text, "what was encoded decodes to itself");
    require(unescaped(text) == decode(text), "decoding keeps what is no code");
}

// The part behind the first NUL byte is the version.
void checkExpansion(const std::string& text) {
    PhpHandler handler;
    handler.displayname = text.substr(0, text.find('\0'));
    if (handler.displayname.size() < text.size()) {
        handler.version = text.substr(handler.displayname.size() + 1);
    }
    require(expandedDisplayName(handler) == expand(handler.displayname, handler.version),
            "every placeholder is replaced once");
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = quelm::fuzz::textOf(data, size);
    quelm::fuzz::checkCoding(text);
    quelm::fuzz::checkExpansion(text);
    return 0;
}
