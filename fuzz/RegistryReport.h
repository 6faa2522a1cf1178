// The registry reader's reports, taken apart and held against the text that they tell about.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quelm::fuzz {

struct RegistryReport {
    std::string message;
    std::size_t offset = 0;
    std::string character; // as printed between the apostrophes
};

// True for the text of a failure, without the path before it, that holds a report.
bool isReport(std::string_view failure);

// Ends the process when the report is not laid out as every report is.
RegistryReport parseReport(std::string_view failure);

// Whether the character is the one at the offset of `text`, which holds no NUL byte, and the message one that
// this byte can call for.
bool fits(const RegistryReport& report, std::string_view text);

// The message with which the reader refuses the stored form of a value, empty when it reads it back.
std::string_view refusalOfStored(std::string_view value);

} // namespace quelm::fuzz
