// A pipe, both ends owned.
#pragma once

#include <optional>

#include "lib/process/lib/UniqueFd.h"

namespace quelm {

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

// A new pipe, inherited by children; nothing when pipe(2) failed, with its reason in errno.
std::optional<Pipe> openPipe();

// Adds O_NONBLOCK to the descriptor's flags. False with the reason in errno.
bool setNonBlocking(int descriptor);

} // namespace quelm
