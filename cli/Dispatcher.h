// From the command word to the command.
#pragma once

namespace quelm {

// Calls the handler of the command word argv[1] with the arguments from that word on and returns its result.
// A missing or unknown word is reported with the usage on standard error; the result is 1.
int dispatch(int argc, char** argv);

} // namespace quelm
