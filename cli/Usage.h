// The usage text. Always on standard error, also when it was asked for.
#pragma once

#include <string>

namespace quelm {

void printUsage();

// "Error: ", the message and a newline, then the usage; an empty message gives only the usage.
void printErrorAndUsage(const std::string& message);

} // namespace quelm
