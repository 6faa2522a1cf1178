// Stack traces and the names in them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace quelm {

// The stack at the moment of construction. Mixed into exception classes that want a trace printed; the entry
// point finds it with a dynamic cast. Copies keep the addresses and produce their own symbol lines.
class Traceback {
public:
    // Captures the current stack. The innermost `skipFrames` frames will not be printed.
    explicit Traceback(std::uint64_t skipFrames);
    Traceback(const Traceback& other);
    Traceback& operator=(const Traceback& other);
    virtual ~Traceback();

    // Writes "Traceback:" and one line per frame; without symbol lines, or when there are not more frames
    // than are to be skipped, "Traceback addresses:" and one address per frame. Every line is flushed.
    void print(std::ostream& stream) const;

private:
    bool resolveSymbols() const;
    void printSymbols(std::ostream& stream) const;
    void printAddresses(std::ostream& stream) const;

    std::uint64_t count;
    std::uint64_t skip;
    std::array<void*, 11> addresses;
    // The block of backtrace_symbols: null until first printed, released with free.
    mutable char** symbols = nullptr;
};

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
