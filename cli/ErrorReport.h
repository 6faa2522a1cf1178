// Turns an exception that no command handled into messages and an exit status.
#pragma once

#include <exception>

namespace quelm {

// Prints the exception and returns the exit status:
//   QuelmUtilException     its text, on std::cerr only                              1
//   other std::exception   "Fatal error: TYPE(TEXT)" and, when the exception is also
//                          a Traceback, its trace, on the error stream              1
//   anything else          "UNSPECIFIED ERROR OCCURED", on the error stream         2
int reportException(std::exception_ptr exception);

} // namespace quelm
