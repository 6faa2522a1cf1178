#include "lib/process/lib/Capture.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/PlainChild.h"

namespace quelm {

namespace {

void makeRoom(ByteBuffer& buffer) {
    constexpr std::size_t alwaysFree = 2048;
    constexpr std::size_t step = 4096;
    if (buffer.room() > alwaysFree) {
        return;
    }
    const std::size_t capacity = buffer.capacity();
    if (!buffer.reserve(capacity <= step ? capacity + step : 2 * capacity)) {
        fatal_message(1, 0, "Cannot allocate memory");
    }
}

Pipe openCapturePipe() {
    std::optional<Pipe> pipe = openPipe();
    if (!pipe) {
        fatal_message(1, 0, "fork_execv_getouterr: pipe() failed");
        return {};
    }
    if (!setNonBlocking(pipe->readEnd.get())) {
        fatal_message(1, 0, "fork_execv_getouterr: fcntl(O_NONBLOCK) failed");
    }
    return std::move(*pipe);
}

// Nothing while the child is running.
std::optional<int> resultIfEnded(pid_t child) {
    int status = 0;
    const pid_t answered = ::waitpid(child, &status, WNOHANG);
    if (answered == 0) {
        return std::nullopt;
    }
    return answered == -1 ? -1 : decodeWaitStatus(status).exitCode();
}

// The parent's ends of the pipes, closed at end of file.
struct Ends {
    UniqueFd output;
    UniqueFd error;
    PipeSelector selector{std::max(output.get(), error.get())};
};

// When the child has ended and its pipes were silent for a second, they are closed unread: a process that
// still holds them may never close them.
int collect(pid_t child, const char* path, Ends& ends, CapturedRun& run) {
    using enum WaitedEnd::For;
    std::array<WaitedEnd, 2> waited{{{ends.output, reading}, {ends.error, reading}}};
    while (ends.output.isOpen() || ends.error.isOpen()) {
        timeval second{1, 0};
        if (ends.selector.wait(waited, &second) > 0) {
            if (waited[0].ready) {
                readOnce(ends.output, run.output);
            }
            if (waited[1].ready) {
                readOnce(ends.error, run.error);
            }
        } else if (const std::optional<int> result = resultIfEnded(child)) {
            return *result;
        }
    }
    return fork_exec_wait(child, path);
}

void reportFailure(const char* path, CapturedRun& run) {
    const bool hasError = run.error.size() != 0;
    const CText output(giveAway(run.output));
    const CText error(giveAway(run.error));
    if (output) {
        std::fputs(output.get(), stderr);
        std::fflush(stderr);
    }
    errno = 0; // left by reading the pipes; the failure is the program's, not the system's
    if (hasError) {
        fatal_message(0, 0, "%s execution failed:\n%s", path, error.get());
    } else {
        fatal_message(0, 0, "%s execution failed (no output)", path);
    }
}

} // namespace

void readOnce(UniqueFd& end, ByteBuffer& buffer) {
    makeRoom(buffer);
    const ssize_t count = ::read(end.get(), buffer.end(), buffer.room() - 1);
    if (count > 0) {
        buffer.extend(static_cast<std::size_t>(count));
    } else if (count == 0) {
        end.close();
    } else if (errno != EAGAIN) {
        reportLine("fork_exec*: read(pipe) failed: %s\n", std::strerror(errno));
        end.close();
        errno = 0;
    }
}

char* giveAway(ByteBuffer& buffer) {
    if (buffer.data() != nullptr) {
        buffer.terminate();
    }
    return buffer.release().release();
}

CapturedRun captureRun(const char* path, char* const argv[], Captured captured) {
    Pipe output = openCapturePipe();
    Pipe error = captured == Captured::outputAndError ? openCapturePipe() : Pipe{};
    Ends ends{std::move(output.readEnd), std::move(error.readEnd)};
    const int errorTarget = error.writeEnd.isOpen() ? error.writeEnd.get() : STDERR_FILENO;
    const pid_t child = fork_execv_pipes(STDIN_FILENO, output.writeEnd.get(), errorTarget, path, argv);
    output.writeEnd.close();
    error.writeEnd.close();
    CapturedRun run{};
    run.result = collect(child, path, ends, run);
    return run;
}

int fork_execv_getouterr(char** output, char** error, const char* path, char* const argv[]) {
    *output = nullptr;
    *error = nullptr;
    CapturedRun run = captureRun(path, argv);
    *output = giveAway(run.output);
    *error = giveAway(run.error);
    return run.result;
}

int exec_and_report(const char* path, char* const argv[], bool quiet) {
    CapturedRun run = captureRun(path, argv);
    if (run.result != 0 && !quiet) {
        reportFailure(path, run);
    }
    return run.result;
}

} // namespace quelm
