#include "lib/process/lib/Pipe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include "lib/process/lib/Exceptions.h"

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

constexpr std::size_t wordBits = sizeof(unsigned long) * CHAR_BIT;

// The word of a set that has the descriptor's bit, and the bit. A set is an array of words, as fd_set is.
std::size_t wordOf(int descriptor) {
    return static_cast<std::size_t>(descriptor) / wordBits;
}
unsigned long bitOf(int descriptor) {
    return 1UL << (static_cast<std::size_t>(descriptor) % wordBits);
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

PipeSelector::PipeSelector(int highest)
    : width_(highest + 1), reading_(wordOf(highest) + 1), writing_(wordOf(highest) + 1) {}

int PipeSelector::wait(std::span<WaitedEnd> ends, timeval* timeout) {
    const auto setOf = [this](const WaitedEnd& waited) -> Set& {
        return waited.direction == WaitedEnd::For::reading ? reading_ : writing_;
    };
    std::fill(reading_.begin(), reading_.end(), 0);
    std::fill(writing_.begin(), writing_.end(), 0);
    for (const WaitedEnd& waited : ends) {
        if (waited.end.isOpen()) {
            setOf(waited)[wordOf(waited.end.get())] |= bitOf(waited.end.get());
        }
    }
    const int count = ::select(width_, reinterpret_cast<fd_set*>(reading_.data()),
                               reinterpret_cast<fd_set*>(writing_.data()), nullptr, timeout);
    for (WaitedEnd& waited : ends) {
        waited.ready = count > 0 && waited.end.isOpen() &&
                       (setOf(waited)[wordOf(waited.end.get())] & bitOf(waited.end.get())) != 0;
    }
    return count;
}

Transfer readToCallback(int descriptor, SinkCallback sink, void* context, char* buffer,
                        std::size_t capacity) {
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer, capacity);
        if (count == 0) {
            return Transfer::finished;
        }
        if (count > 0) {
            if (sink != nullptr) {
                sink(buffer, static_cast<std::size_t>(count), context);
            }
        } else if (errno == EAGAIN) {
            return Transfer::keepOpen;
        } else if (errno != EINTR) {
            throwSystemError("readToCallback failed", errno);
        }
    }
}

Transfer writeFromCallback(int descriptor, char* buffer, std::size_t capacity, std::size_t& pending,
                           SourceCallback source, void* context) {
    for (;;) {
        if (pending == 0) {
            pending = source != nullptr ? source(buffer, capacity, context) : 0;
            if (pending == 0) {
                return Transfer::finished;
            }
        }
        const ssize_t written = ::write(descriptor, buffer, pending);
        if (written >= 0) {
            pending -= static_cast<std::size_t>(written);
            std::memmove(buffer, buffer + written, pending);
        } else if (errno == EAGAIN) {
            return Transfer::keepOpen;
        } else if (errno == EPIPE) {
            return Transfer::finished;
        } else if (errno != EINTR) {
            throwSystemError("writeFromCallback failed", errno);
        }
    }
}

} // namespace quelm
