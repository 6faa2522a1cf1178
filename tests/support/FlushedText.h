// A stream buffer that knows how much of its text was flushed.
#pragma once

#include <sstream>
#include <string>

namespace quelm::test {

class FlushedText : public std::stringbuf {
public:
    std::string flushed;

protected:
    int sync() override {
        flushed = str();
        return 0;
    }
};

} // namespace quelm::test
