#include "base/UtilityErrorStream.h"

#include <iostream>

namespace quelm {

UtilityErrorStreamBuf::int_type UtilityErrorStreamBuf::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) {
        return c;
    }
    const char character = traits_type::to_char_type(c);
    std::cerr.put(character);
    pending_.push_back(character);
    return c;
}

int UtilityErrorStreamBuf::sync() {
    std::cerr.flush();
    std::cout.write(pending_.data(), static_cast<std::streamsize>(pending_.size()));
    std::cout.flush();
    pending_.clear();
    return 0;
}

// The base class is constructed before the buffer, so it starts without one; rdbuf() clears the bad bit that
// this sets.
UtilityErrorStream::UtilityErrorStream() : std::ostream(nullptr) {
    rdbuf(&buffer_);
}

UtilityErrorStream errorStream;

} // namespace quelm
