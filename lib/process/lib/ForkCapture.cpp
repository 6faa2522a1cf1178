#include "lib/process/lib/ForkCapture.h"

#include <array>
#include <optional>
#include <utility>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/CapturedRun.h"
#include "lib/process/lib/ForkExecWait.h"
#include "lib/process/lib/ForkPipes.h"
#include "lib/process/lib/OutputBuffer.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/UniqueFd.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

namespace {

constexpr int pollPeriod = 1000; // milliseconds

// One of the child's streams, seen from the parent; `end` is closed when there is nothing more to come.
struct Capture {
    UniqueFd end;
    OutputBuffer buffer;
};

Pipe openCapturePipe() {
    std::optional<Pipe> pipe = openPipe();
    if (!pipe) {
        fatal_message(1, 0, "fork_execv_getouterr: pipe() failed");
        return {};
    }
    return std::move(*pipe);
}

Capture startCapture(UniqueFd readEnd) {
    if (!setNonBlocking(readEnd.get())) {
        fatal_message(1, 0, "fork_execv_getouterr: fcntl(O_NONBLOCK) failed");
    }
    return {std::move(readEnd), {}};
}

// Nothing while the child runs on.
std::optional<int> resultIfEnded(pid_t child) {
    int status = 0;
    const pid_t answered = ::waitpid(child, &status, WNOHANG);
    if (answered == 0) {
        return std::nullopt;
    }
    return answered == -1 ? -1 : decodeWaitStatus(status).exitCode();
}

// A child found ended after a quiet second has been waited for; its pipes are then given up unread, because
// whoever still holds them may never close them.
int collect(pid_t child, const char* path, Capture& output, Capture& error) {
    while (output.end.isOpen() || error.end.isOpen()) {
        std::array<pollfd, 2> ends{{{output.end.get(), POLLIN, 0}, {error.end.get(), POLLIN, 0}}};
        if (::poll(ends.data(), ends.size(), pollPeriod) > 0) {
            if (ends[0].revents != 0) {
                output.buffer.readOnce(output.end);
            }
            if (ends[1].revents != 0) {
                error.buffer.readOnce(error.end);
            }
        } else if (const std::optional<int> result = resultIfEnded(child)) {
            return *result;
        }
    }
    return fork_exec_wait(child, path);
}

} // namespace

CapturedRun captureRun(const char* path, char* const argv[]) {
    Pipe outputPipe = openCapturePipe();
    Pipe errorPipe = openCapturePipe();
    Capture fromOutput = startCapture(std::move(outputPipe.readEnd));
    Capture fromError = startCapture(std::move(errorPipe.readEnd));
    const pid_t child =
        fork_execv_pipes(STDIN_FILENO, outputPipe.writeEnd.get(), errorPipe.writeEnd.get(), path, argv);
    outputPipe.writeEnd.close();
    errorPipe.writeEnd.close();
    const int result = collect(child, path, fromOutput, fromError);
    return {result, std::move(fromOutput.buffer), std::move(fromError.buffer)};
}

int fork_execv_getouterr(char** output, char** error, const char* path, char* const argv[]) {
    *output = nullptr;
    *error = nullptr;
    CapturedRun run = captureRun(path, argv);
    *output = run.output.release();
    *error = run.error.release();
    return run.result;
}

int fork_execv_getout(char** output, const char* path, char* const argv[]) {
    *output = nullptr;
    Pipe pipe = openCapturePipe();
    Capture fromOutput = startCapture(std::move(pipe.readEnd));
    Capture noError;
    const pid_t child = fork_execv_pipes(STDIN_FILENO, pipe.writeEnd.get(), STDERR_FILENO, path, argv);
    pipe.writeEnd.close();
    const int result = collect(child, path, fromOutput, noError);
    *output = fromOutput.buffer.release();
    return result;
}

} // namespace quelm
