// An expected failure: only its text is printed, and the exit status is 1.
#pragma once

#include <stdexcept>

namespace quelm {

// Throw it with a complete, readable message. A broken assumption of the program itself is thrown as plain
// std::runtime_error instead, so that it prints as "Fatal error: ".
class QuelmUtilException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace quelm
