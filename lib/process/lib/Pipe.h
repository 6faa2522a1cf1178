// A pipe, both ends owned.
#pragma once

#include <optional>

#include "lib/process/lib/UniqueFd.h"

namespace quelm {

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

// A new pipe, inherited by children. Neither end is 0, 1 or 2, also when those are closed: a child that is
// given the utility's own standard descriptors must not find a pipe of somebody else's among them. Nothing
// when the pipe cannot be made or an end cannot be moved, with the reason in errno.
std::optional<Pipe> openPipe();

// Adds O_NONBLOCK to the descriptor's flags. False with the reason in errno.
bool setNonBlocking(int descriptor);

} // namespace quelm
