#include "lib/process/lib/Pipe.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace quelm {

std::optional<Pipe> openPipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return std::nullopt;
    }
    return Pipe{UniqueFd(ends[0]), UniqueFd(ends[1])};
}

bool setNonBlocking(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags != -1 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != -1;
}

} // namespace quelm
