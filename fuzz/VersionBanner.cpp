// Any output of an interpreter: the version is that of the first line which a scanner written out by hand
// takes for a banner.
#include <algorithm>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "commands/PhpVersion.h"
#include "fuzz/Fuzz.h"

namespace quelm::fuzz {

namespace {

// From here on the expression may give up on a line.
constexpr std::ptrdiff_t manyParts = 5000;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::size_t digitsEnd(std::string_view line, std::size_t at) {
    while (at < line.size() && isDigit(line[at])) {
        ++at;
    }
    return at;
}

std::optional<std::string> versionOf(std::string_view line) {
    constexpr std::size_t start = 4;
    if (!line.starts_with("PHP") || line.size() < start || !isSpace(line[start - 1])) {
        return std::nullopt;
    }
    std::size_t end = digitsEnd(line, start);
    if (end == start) {
        return std::nullopt;
    }
    while (end + 1 < line.size() && line[end] == '.' && isDigit(line[end + 1])) {
        end = digitsEnd(line, end + 1);
    }
    return std::string(line.substr(start, end - start));
}

std::optional<std::string> firstVersion(const std::string& output) {
    for (const std::string& line : linesOf(output)) {
        if (const auto version = versionOf(line)) {
            return version;
        }
    }
    return std::nullopt;
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quelm::fuzz;
    const std::string output = textOf(data, size);
    try {
        require(quelm::findPhpVersion(output) == firstVersion(output),
                "the version is that of the first banner line");
    } catch (const std::runtime_error&) {
        require(std::count(output.begin(), output.end(), '.') > manyParts,
                "the expression gives up on very many parts only");
    }
    return 0;
}
