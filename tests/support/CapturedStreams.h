// What this process and its children print while a test looks.
#pragma once

#include <string>

namespace quelm::test {

// From construction on descriptors 1 and 2 are files in memory; the destructor puts the old ones back.
class CapturedStreams {
public:
    CapturedStreams();
    CapturedStreams(const CapturedStreams&) = delete;
    CapturedStreams& operator=(const CapturedStreams&) = delete;
    ~CapturedStreams();

    // All that was printed so far.
    std::string output() const;
    std::string error() const;

private:
    int savedOutput_;
    int savedError_;
    int output_;
    int error_;
};

} // namespace quelm::test
