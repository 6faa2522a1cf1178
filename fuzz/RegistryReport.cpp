#include "fuzz/RegistryReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "fuzz/Fuzz.h"

namespace quelm::fuzz {

namespace {

constexpr std::string_view intro = "can not parse php_versions_info object : ";
constexpr std::string_view stringExpected = "String is expected.";
constexpr std::string_view unicodeEscape =
    "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters "
    "and '\\u' escape sequences are not supported.";

// The bytes at which the reader can stop with a message: those named, or all but those named. The end of the
// text is written as a NUL byte.
struct Stop {
    std::string_view message;
    bool named;
    std::string_view bytes;
};

using namespace std::string_view_literals;
constexpr std::string_view spaces = " \t\n\v\f\r";
constexpr std::array<Stop, 15> stops{{
    {"JSON document has ended prematurely. Check that all strings are properly ended.", true, "\0"sv},
    {"Any value is expected, but was not found.", false, "\0\"{[tfn-0123456789"sv},
    {"Invalid or unsupported number format. Check that there are no floating point numbers.", false,
     "0123456789"},
    {stringExpected, false, "\""},
    {"Invalid escape sequence found in string.", false, "\0\"\\/bfnrtu"sv},
    {"Invalid character found in string. Check that strings do not contain control characters.", true,
     "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19"
     "\x1a\x1b\x1c\x1d\x1e\x1f"},
    {unicodeEscape, true, "u"},
    {"JSON object is expected.", false, "{"},
    {"JSON name separator (':') is expected inside an object.", false, ":"},
    {"JSON value separator (',') or end of object is expected.", false, ",}"},
    {"Some required fields are missing from the JSON object. Check that input JSON document conforms to "
     "schema.",
     true, "}"},
    {"JSON array is expected.", false, "["},
    {"JSON value separator (',') or end of array is expected.", false, ",]"},
    {"Boolean value is expected.", false, ""},
    {"'null' is expected.", true, "n"},
}};

// These can stop in the middle of a token, where a blank is as good as any other byte.
bool stopsAtSpaces(std::string_view message) {
    return message.starts_with("Invalid ");
}

std::string printed(char c) {
    if (c >= 0x20 && c <= 0x7e) {
        return {c};
    }
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    return text.data();
}

std::size_t storedLength(char c) {
    if (std::string_view("\b\t\n\f\r\"\\").find(c) != std::string_view::npos) {
        return 2;
    }
    return static_cast<unsigned char>(c) < 0x20 ? 6 : 1;
}

} // namespace

bool isReport(std::string_view failure) {
    return failure.starts_with(intro);
}

RegistryReport parseReport(std::string_view failure) {
    require(isReport(failure), "this is a report: " + std::string(failure));
    const std::string_view text = failure.substr(intro.size());
    const std::size_t offset = text.rfind(" Error occured at offset ");
    const std::size_t character = text.rfind(", character '");
    require(offset != std::string_view::npos && character != std::string_view::npos && offset < character &&
                text.ends_with("'. "),
            "a report tells the offset and the character, and no error of the system: " + std::string(text));
    const std::size_t digits = offset + 25;
    const std::size_t shown = character + 13;
    return {std::string(text.substr(0, offset)),
            std::strtoull(std::string(text.substr(digits, character - digits)).c_str(), nullptr, 10),
            std::string(text.substr(shown, text.size() - shown - 3))};
}

bool fits(const RegistryReport& report, std::string_view text) {
    const char byte = report.offset < text.size() ? text[report.offset] : '\0';
    if (report.character != printed(byte)) {
        return false;
    }
    const auto* stop = std::find_if(stops.begin(), stops.end(),
                                    [&](const Stop& known) { return known.message == report.message; });
    if (stop == stops.end()) {
        return false;
    }
    if (spaces.find(byte) != std::string_view::npos && !stopsAtSpaces(stop->message)) {
        return false;
    }
    return (stop->bytes.find(byte) != std::string_view::npos) == stop->named;
}

std::string_view refusalOfStored(std::string_view value) {
    constexpr std::size_t longest = 4087;
    std::size_t length = 0;
    bool numbered = false;
    for (const char c : value) {
        length += storedLength(c);
        numbered = numbered || storedLength(c) == 6;
    }
    if (length > longest) {
        return stringExpected; // a bare null stands there
    }
    return numbered ? unicodeEscape : std::string_view();
}

} // namespace quelm::fuzz
