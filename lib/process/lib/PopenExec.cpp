#include "lib/process/lib/PopenExec.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include <unistd.h>

#include "cli/ScopedSignal.h"
#include "lib/process/lib/ForkExecWait.h"
#include "lib/process/lib/ForkPipes.h"
#include "lib/process/lib/OutputBuffer.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/ReportLine.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

namespace {

enum class Direction { toCommand, fromCommand };

struct ShellCommand {
    pid_t child;
    UniqueFd end; // ours
};

// Nothing, with the reason in errno, when it cannot be started. The C library's popen is not used because its
// child keeps our signal mask.
std::optional<ShellCommand> start(const char* command, Direction direction) {
    errno = 0;
    std::optional<Pipe> pipe = openPipe();
    if (!pipe) {
        return std::nullopt;
    }
    // exec takes pointers to char for the sake of old programs; it does not write through them.
    const std::array<char*, 5> arguments{const_cast<char*>("sh"), const_cast<char*>("-c"),
                                         const_cast<char*>("--"), const_cast<char*>(command), nullptr};
    const ChildDescriptors descriptors =
        direction == Direction::toCommand
            ? ChildDescriptors{pipe->readEnd.get(), STDOUT_FILENO, STDERR_FILENO}
            : ChildDescriptors{STDIN_FILENO, pipe->writeEnd.get(), STDERR_FILENO};
    const pid_t child = forkProgram(descriptors, "/bin/sh", arguments.data());
    if (child == -1) {
        return std::nullopt;
    }
    return ShellCommand{child, std::move(direction == Direction::toCommand ? pipe->writeEnd : pipe->readEnd)};
}

// Closes our end first, so that a command that waits for it ends. Nothing when the wait failed.
std::optional<int> finish(ShellCommand& command) {
    command.end.close();
    int status = 0;
    if (waitUninterrupted(command.child, &status, 0) == -1) {
        return std::nullopt;
    }
    return decodeWaitStatus(status).exitCode();
}

// read and write, repeated for as long as a signal interrupts them.
ssize_t readSome(int descriptor, char* bytes, std::size_t size) {
    ssize_t count = -1;
    do {
        count = ::read(descriptor, bytes, size);
    } while (count == -1 && errno == EINTR);
    return count;
}

ssize_t writeSome(int descriptor, const char* bytes, std::size_t size) {
    ssize_t count = -1;
    do {
        count = ::write(descriptor, bytes, size);
    } while (count == -1 && errno == EINTR);
    return count;
}

// How much the pipe has taken.
std::size_t writeAll(int descriptor, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = writeSome(descriptor, text.data() + written, text.size() - written);
        if (count == -1) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    return written;
}

class CommandOutput {
public:
    bool start() {
        block_.reset(static_cast<char*>(std::malloc(firstSize)));
        capacity_ = firstSize;
        return static_cast<bool>(block_);
    }

    // Reads to the end; what finds no room is read all the same, so that the command is not cut short.
    PopenFailure collect(int descriptor) {
        while (length_ + 1 < capacity_ || grow()) {
            const ssize_t count = readSome(descriptor, block_.get() + length_, capacity_ - length_ - 1);
            if (count <= 0) {
                return PopenFailure::none;
            }
            length_ += static_cast<std::size_t>(count);
        }
        return drain(descriptor);
    }

    char* release() {
        block_.get()[length_] = '\0';
        return block_.release();
    }

private:
    static constexpr std::size_t firstSize = 4096;

    bool grow() {
        void* grown = std::realloc(block_.get(), 2 * capacity_);
        if (grown == nullptr) {
            return false;
        }
        (void)block_.release();
        block_.reset(static_cast<char*>(grown));
        capacity_ *= 2;
        return true;
    }

    static PopenFailure drain(int descriptor) {
        PopenFailure failure = PopenFailure::none;
        std::array<char, firstSize> dropped;
        while (readSome(descriptor, dropped.data(), dropped.size()) > 0) {
            failure = PopenFailure::cutOutput;
        }
        return failure;
    }

    CText block_;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
};

int run(const char* command, char** output, PopenFailure& failure) {
    *output = nullptr;
    CommandOutput collected;
    if (!collected.start()) {
        failure = PopenFailure::noMemory;
        return -1;
    }
    std::optional<ShellCommand> running = start(command, Direction::fromCommand);
    if (!running) {
        failure = PopenFailure::notStarted;
        return -1;
    }
    failure = collected.collect(running->end.get());
    const std::optional<int> result = finish(*running);
    if (!result) {
        failure = PopenFailure::notStarted;
        return -1;
    }
    *output = collected.release();
    return *result;
}

void reportFailure(PopenFailure failure) {
    switch (failure) {
    case PopenFailure::none:
        break;
    case PopenFailure::notStarted:
        if (errno == 0) {
            reportLine("popen_exec: failed to execute command: fork or pipe calls failed, or cannot allocate "
                       "memory\n");
        } else {
            reportLine("popen_exec: failed to execute command: %s\n", std::strerror(errno));
        }
        break;
    case PopenFailure::noMemory:
        reportLine("popen_exec: failed to allocate memory\n");
        break;
    case PopenFailure::cutOutput:
        reportLine("popen_exec: warning: failed to allocate memory for command output buffer\n");
        break;
    }
}

} // namespace

int exec_with_input(const char* command, const std::string& text) {
    std::optional<ShellCommand> running = start(command, Direction::toCommand);
    if (!running) {
        reportLine("Failed to execute command with input: either pipe, fork or memory allocation failed.");
        return -1;
    }
    const ScopedSignal survive(SIGPIPE, SIG_IGN);
    const std::size_t written = writeAll(running->end.get(), text);
    const int result = finish(*running).value_or(-1);
    if (written < text.size()) {
        reportLine("Failed to execute command with input: only %lu of %lu bytes were written.",
                   static_cast<unsigned long>(written), static_cast<unsigned long>(text.size()));
        return -1;
    }
    return result;
}

int popen_exec(const char* command, char** output, PopenFailure* failure) {
    PopenFailure found = PopenFailure::none;
    const int result = run(command, output, found);
    if (failure != nullptr) {
        *failure = found;
    }
    return result;
}

int popen_exec_report(const char* command, char** output) {
    PopenFailure failure = PopenFailure::none;
    const int result = run(command, output, failure);
    reportFailure(failure);
    const bool ran = failure == PopenFailure::none || failure == PopenFailure::cutOutput;
    if (ran && result != 0) {
        reportLine("popen_exec: command failed code: %d , %s\n", result,
                   **output != '\0' ? *output : "error: none");
    }
    return result;
}

} // namespace quelm
