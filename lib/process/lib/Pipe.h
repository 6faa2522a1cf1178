// Pipes: made, waited for, and moved through in blocks.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include <sys/time.h>

#include "base/File.h"

namespace quelm {

// Both ends owned.
struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

// A new pipe, inherited by children. Neither end is 0, 1 or 2, even when those are closed: a child may be
// given the utility's own standard descriptors, and none of them must be another child's pipe. Nothing on
// failure, with the reason in errno.
std::optional<Pipe> openPipe();

// Adds O_NONBLOCK to the descriptor's flags. False with the reason in errno.
bool setNonBlocking(int descriptor);

// An end to wait for; a closed one is never ready.
struct WaitedEnd {
    enum class For { reading, writing };

    const UniqueFd& end;
    For direction;
    bool ready = false;
};

// select(2) on the ends of a run's pipes, as wide as their numbers need: an fd_set ends at 1024.
class PipeSelector {
public:
    // For descriptors up to `highest`. Throws std::bad_alloc.
    explicit PipeSelector(int highest);

    // Waits until some of the ends are ready and marks them. Returns how many; 0 after the time-out, -1 with
    // the reason in errno. A null `timeout` waits without a limit.
    int wait(std::span<WaitedEnd> ends, timeval* timeout);

private:
    using Set = std::vector<unsigned long>;

    int width_;
    Set reading_;
    Set writing_;
};

// Puts at most `capacity` bytes into the buffer and returns how many; 0 ends the input.
using SourceCallback = std::size_t (*)(char* buffer, std::size_t capacity, void* context);

// Takes `count` bytes, which are valid during the call.
using SinkCallback = void (*)(const char* bytes, std::size_t count, void* context);

// keepOpen: nothing more can be moved now. finished: the descriptor is to be closed.
enum class Transfer { keepOpen, finished };

// Reads what the non-blocking descriptor has and hands it to the sink, at most `capacity` bytes at a time; a
// null sink drops it. Finished at end of file. Leaves errno at EAGAIN when the pipe was found empty. Throws
// SystemError "readToCallback failed" and what the sink throws.
Transfer readToCallback(int descriptor, SinkCallback sink, void* context, char* buffer, std::size_t capacity);

// Writes the `pending` bytes at the front of the buffer and then what the source puts there, as much as the
// non-blocking descriptor takes; updates `pending`. Finished when the source returns 0 (a null source at
// once), or when the pipe has no reader any more; the rest of the input is then dropped. SIGPIPE must be
// ignored. Throws SystemError "writeFromCallback failed" and what the source throws.
Transfer writeFromCallback(int descriptor, char* buffer, std::size_t capacity, std::size_t& pending,
                           SourceCallback source, void* context);

} // namespace quelm
