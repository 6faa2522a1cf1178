#include "registry/JsonError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace quelm {

namespace {

constexpr std::size_t reportSize = 1023;
constexpr std::string_view detailMark = "%s";

// By code. "occured" below is spelt that way on purpose, and a backslash in these texts stands there once.
constexpr std::array<std::string_view, 24> messages{
    "OK, no error.",
    "JSON array or object has ended.",
    "JSON document has ended prematurely. Check that all strings are properly ended.",
    "Any value is expected, but was not found.",
    "Number is expected.",
    "Number value is out of range for expected type.",
    "Invalid or unsupported number format. Check that there are no floating point numbers.",
    "String is expected.",
    "Invalid escape sequence found in string.",
    "Invalid character found in string. Check that strings do not contain control characters.",
    "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters "
    "and '\\u' escape sequences are not supported.",
    "JSON object is expected.",
    "JSON name separator (':') is expected inside an object.",
    "JSON value separator (',') or end of object is expected.",
    "Some required fields are missing from the JSON object. Check that input JSON document conforms to "
    "schema.",
    "JSON array is expected.",
    "JSON value separator (',') or end of array is expected.",
    "Boolean value is expected.",
    "'null' is expected.",
    "'null' is unexpected in this context. Check that input JSON document conforms to schema.",
    "Failed to allocate memory.",
    "Encountered an object field \"%s\" not present in JSON schema. Remove excessive data from input JSON "
    "document or allow skipping unknown fields.",
    "Encountered a duplicate field \"%s\" in a JSON object. Remove duplicates from input JSON document or "
    "disable duplicate fields check.",
    "Custom JSON value constraint failed: %s.",
};

std::string messageText(std::size_t code, const char* detail) {
    std::string text(messages[code]);
    const std::size_t mark = text.find(detailMark);
    if (mark != std::string::npos) {
        text.replace(mark, detailMark.size(), detail != nullptr ? detail : "N/A");
    }
    return text;
}

// Not isprint: the report must not change with the locale.
std::string characterText(unsigned char character) {
    if (character >= 0x20 && character <= 0x7e) {
        return {static_cast<char>(character)};
    }
    constexpr std::string_view digits = "0123456789abcdef";
    return {'\\', 'x', digits[character >> 4], digits[character & 0x0fU]};
}

} // namespace

std::string formatJsonError(const JsonError& error) {
    const int systemError = errno;
    const auto code = static_cast<std::size_t>(error.code);
    if (code >= messages.size()) {
        return "unknown error code";
    }
    std::string report = messageText(code, error.detail);
    if (error.code == JsonErrorCode::none) {
        return report;
    }
    report += " Error occured at offset " + std::to_string(error.offset);
    report += ", character '" + characterText(error.character) + "'. ";
    if (systemError != 0) {
        report += std::string("Also system error occured: ") + std::strerror(systemError) + " (" +
                  std::to_string(systemError) + ").";
    }
    report.resize(std::min(report.size(), reportSize));
    return report;
}

} // namespace quelm
