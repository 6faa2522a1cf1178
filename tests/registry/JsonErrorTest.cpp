#include "registry/JsonError.h"

#include <array>
#include <cerrno>
#include <clocale>

#include <gtest/gtest.h>

namespace quelm {

namespace {

std::string reportWithErrno(int number, const JsonError& error) {
    errno = number;
    return formatJsonError(error);
}

JsonError errorAt(std::size_t offset, unsigned char character) {
    return {JsonErrorCode::stringExpected, offset, character, nullptr};
}

constexpr std::array<const char*, 24> texts{
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
    "and "
    "'\\u' escape sequences are not supported.",
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
    "Encountered an object field \"N/A\" not present in JSON schema. Remove excessive data from input JSON "
    "document or allow skipping unknown fields.",
    "Encountered a duplicate field \"N/A\" in a JSON object. Remove duplicates from input JSON document or "
    "disable duplicate fields check.",
    "Custom JSON value constraint failed: N/A.",
};

} // namespace

TEST(JsonErrorReport, EveryCodeHasItsText) {
    for (unsigned code = 1; code < texts.size(); ++code) {
        const JsonError error{static_cast<JsonErrorCode>(code), 118, '}', nullptr};
        EXPECT_EQ(reportWithErrno(0, error),
                  std::string(texts[code]) + " Error occured at offset 118, character '}'. ");
    }
}

TEST(JsonErrorReport, CodeZeroAndUnknownCodesStandAlone) {
    for (const auto& [code, text] : {std::pair{0U, "OK, no error."},
                                     {24U, "unknown error code"},
                                     {25U, "unknown error code"},
                                     {4294967295U, "unknown error code"}}) {
        EXPECT_EQ(reportWithErrno(2, {static_cast<JsonErrorCode>(code), 5, 'x', "detail"}), text);
    }
}

TEST(JsonErrorReport, TheSystemsErrorFollowsUnlessErrnoIsZero) {
    const std::string report =
        "String is expected. Error occured at offset 18446744073709551615, character 'x'. ";
    EXPECT_EQ(reportWithErrno(0, errorAt(18446744073709551615U, 'x')), report);
    EXPECT_EQ(reportWithErrno(2, errorAt(18446744073709551615U, 'x')),
              report + "Also system error occured: No such file or directory (2).");
}

TEST(JsonErrorReport, DetailIsInserted) {
    EXPECT_EQ(
        reportWithErrno(0, {JsonErrorCode::unknownField, 1, 'a', "na%sme"}),
        "Encountered an object field \"na%sme\" not present in JSON schema. Remove excessive data from "
        "input JSON document or allow skipping unknown fields. Error occured at offset 1, character 'a'. ");
    EXPECT_EQ(
        reportWithErrno(0, {JsonErrorCode::duplicateField, 0, 'a', "id"}),
        "Encountered a duplicate field \"id\" in a JSON object. Remove duplicates from input JSON document "
        "or disable duplicate fields check. Error occured at offset 0, character 'a'. ");
    EXPECT_EQ(reportWithErrno(0, {JsonErrorCode::constraint, 0, 'a', "too big"}),
              "Custom JSON value constraint failed: too big. Error occured at offset 0, character 'a'. ");
    EXPECT_EQ(reportWithErrno(0, {JsonErrorCode::stringExpected, 0, 'a', "detail"}),
              "String is expected. Error occured at offset 0, character 'a'. ");
}

TEST(JsonErrorReport, OnlyPrintableAsciiIsShownAsItIs) {
    const std::string front = "String is expected. Error occured at offset 0, character '";
    std::setlocale(LC_ALL, "C.UTF-8");
    for (unsigned byte = 0x20; byte <= 0x7e; ++byte) {
        EXPECT_EQ(reportWithErrno(0, errorAt(0, static_cast<unsigned char>(byte))),
                  front + static_cast<char>(byte) + "'. ");
    }
    for (const auto& [byte, shown] : {std::pair{0x00, "\\x00"},
                                      {0x0a, "\\x0a"},
                                      {0x1f, "\\x1f"},
                                      {0x7f, "\\x7f"},
                                      {0x80, "\\x80"},
                                      {0xff, "\\xff"}}) {
        EXPECT_EQ(reportWithErrno(0, errorAt(0, static_cast<unsigned char>(byte))), front + shown + "'. ");
    }
}

// 1023 bytes are kept, wherever that is.
TEST(JsonErrorReport, IsCutAt1023Bytes) {
    const auto report = [](std::size_t length) {
        return reportWithErrno(length == 942 ? 0 : 2,
                               {JsonErrorCode::constraint, 0, 'a', std::string(length, 'd').c_str()});
    };
    const std::string front = "Custom JSON value constraint failed: ";
    EXPECT_EQ(report(2000), front + std::string(986, 'd'));
    EXPECT_EQ(report(970), front + std::string(970, 'd') + ". Error occured ");
    EXPECT_EQ(report(942), front + std::string(942, 'd') + ". Error occured at offset 0, character 'a'. ");
}

} // namespace quelm
