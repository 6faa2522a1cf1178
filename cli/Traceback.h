// The stack of the moment, kept in an exception until somebody prints it.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>

namespace quelm {

// Mixed into exception classes that want a trace printed; the entry point finds it with a dynamic cast.
// Copies keep the addresses and produce their own symbol lines.
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

} // namespace quelm
