#include "lib/process/lib/Pipe.h"

#include <array>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace quelm {

namespace {

bool moveBeyondStandard(UniqueFd& end) {
    if (end.get() > STDERR_FILENO) {
        return true;
    }
    UniqueFd moved(::fcntl(end.get(), F_DUPFD, STDERR_FILENO + 1));
    if (!moved.isOpen()) {
        return false;
    }
    end = std::move(moved);
    return true;
}

} // namespace

std::optional<Pipe> openPipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return std::nullopt;
    }
    Pipe pipe{UniqueFd(ends[0]), UniqueFd(ends[1])};
    if (!moveBeyondStandard(pipe.readEnd) || !moveBeyondStandard(pipe.writeEnd)) {
        return std::nullopt;
    }
    return pipe;
}

bool setNonBlocking(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags != -1 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != -1;
}

} // namespace quelm
