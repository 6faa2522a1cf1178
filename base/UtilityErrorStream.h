// The error stream that shows its text twice: on standard error at once, on standard output at each flush.
// The panel reads standard output only; it must see why a run failed.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace quelm {

class UtilityErrorStreamBuf : public std::streambuf {
protected:
    // Writes the character to std::cerr and keeps it for the next sync; end-of-file is returned unchanged.
    int_type overflow(int_type c) override;

    // Flushes std::cerr, writes what was kept to std::cout, flushes std::cout. Returns 0.
    int sync() override;

private:
    std::string pending_;
};

class UtilityErrorStream : public std::ostream {
public:
    UtilityErrorStream();

private:
    UtilityErrorStreamBuf buffer_;
};

// Built before main runs; usable until exit. End each line with std::endl: text that is never flushed reaches
// standard error only.
extern UtilityErrorStream errorStream;

} // namespace quelm
