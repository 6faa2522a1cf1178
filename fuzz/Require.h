// What a target claims about the code under test.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace quelm::fuzz {

// Ends the process by a signal when the claim does not hold.
inline void require(bool holds, const std::string& claim) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", claim.c_str());
        std::abort();
    }
}

} // namespace quelm::fuzz
