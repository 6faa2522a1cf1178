// C++ names as people write them.
#pragma once

#include <optional>
#include <string>

namespace quelm {

// The readable form of a mangled name, or nothing when `mangled` is not a valid one. Taken literally: a C
// function called "f" reads as "float".
std::optional<std::string> demangle(const char* mangled);

// The name to print for a run-time type record's name: a leading '*' is skipped; a name that cannot be
// demangled is returned as it is.
std::string readableTypeName(const char* mangled);

// A line of a stack trace, "OBJECT(FUNCTION+OFFSET) [ADDRESS]", with the readable name in place of the
// mangled one between the first '(' and the first '+' after it; a line without such a name is returned as it
// is.
std::string readableFrame(const std::string& symbolLine);

} // namespace quelm
