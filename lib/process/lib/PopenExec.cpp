#include "lib/process/lib/PopenExec.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/process/lib/ChildSetup.h"
#include "lib/process/lib/OutputBuffer.h"
#include "lib/process/lib/ReportLine.h"
#include "lib/process/lib/ScopedSignal.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

namespace {

std::FILE* openCommand(const char* command, const char* mode) {
    prepareFork();
    const ScopedSignal ordinary(SIGPIPE, SIG_DFL);
    errno = 0; // popen does not set it when memory runs out
    return ::popen(command, mode);
}

// Unbuffered, so that the count is what the pipe has taken.
std::size_t writeAll(std::FILE* stream, const std::string& text) {
    std::setvbuf(stream, nullptr, _IONBF, 0);
    return std::fwrite(text.data(), 1, text.size(), stream);
}

int resultOf(int status) {
    return status == -1 ? -1 : decodeWaitStatus(status).exitCode();
}

class CommandOutput {
public:
    bool start() {
        block_.reset(static_cast<char*>(std::malloc(firstSize)));
        capacity_ = firstSize;
        return static_cast<bool>(block_);
    }

    // Reads to the end; what finds no room is read all the same, so that the command is not cut short.
    PopenFailure collect(std::FILE* stream) {
        while (length_ + 1 < capacity_ || grow()) {
            const std::size_t room = capacity_ - length_ - 1;
            length_ += std::fread(block_.get() + length_, 1, room, stream);
            if (std::ferror(stream) != 0 && errno == EINTR) {
                std::clearerr(stream);
            } else if (length_ + 1 < capacity_) {
                return PopenFailure::none;
            }
        }
        return drain(stream);
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

    static PopenFailure drain(std::FILE* stream) {
        PopenFailure failure = PopenFailure::none;
        while (std::fgetc(stream) != EOF) {
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
    std::FILE* stream = openCommand(command, "re");
    if (stream == nullptr) {
        failure = PopenFailure::notStarted;
        return -1;
    }
    failure = collected.collect(stream);
    const int status = ::pclose(stream);
    if (status == -1) {
        failure = PopenFailure::notStarted;
        return -1;
    }
    *output = collected.release();
    return resultOf(status);
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
    std::FILE* stream = openCommand(command, "we");
    if (stream == nullptr) {
        reportLine("Failed to execute command with input: either pipe, fork or memory allocation failed.");
        return -1;
    }
    const ScopedSignal survive(SIGPIPE, SIG_IGN);
    const std::size_t written = writeAll(stream, text);
    const int result = resultOf(::pclose(stream));
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
