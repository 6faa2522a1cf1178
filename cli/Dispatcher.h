// The table of commands and the usage text.
#pragma once

#include <string>

namespace quelm {

// Calls the handler of the command word argv[1] with the arguments from that word on and returns its result.
// A missing or unknown word is reported with the usage on standard error; the result is 1.
int dispatch(int argc, char** argv);

void printUsage();

// "Error: ", the message and a newline, then the usage; an empty message gives only the usage.
void printErrorAndUsage(const std::string& message);

} // namespace quelm
