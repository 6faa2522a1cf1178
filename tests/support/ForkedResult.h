// A forked piece of a test that answers with a status of its own.
#pragma once

#include <cstdio>
#include <functional>

#include <unistd.h>

#include "tests/support/InChild.h"

namespace quelm::test {

// inChild for a body whose result becomes the exit status, unless the body ends the process itself.
inline ChildOutcome runForked(const std::function<int()>& body) {
    return inChild([&body] {
        const int result = body();
        std::fflush(nullptr);
        ::_exit(result);
    });
}

} // namespace quelm::test
