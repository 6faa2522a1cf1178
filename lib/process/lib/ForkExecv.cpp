// errno is a result here: between the last read and the return nothing may set or restore it.
#include "lib/process/lib/ForkExecv.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include <sys/wait.h>

#include "base/FatalMessage.h"
#include "base/ProcessState.h"
#include "lib/process/lib/Exceptions.h"
#include "lib/process/lib/PlainChild.h"

namespace quelm {

namespace {

// The parent's ends of the three pipes.
struct Ends {
    UniqueFd input;
    UniqueFd output;
    UniqueFd error;

    bool anyOpen() const { return input.isOpen() || output.isOpen() || error.isOpen(); }
    int highest() const { return std::max({input.get(), output.get(), error.get()}); }
};

struct Callbacks {
    SourceCallback source;
    SinkCallback output;
    SinkCallback error;
    void* context;
};

struct Sizes {
    std::size_t input;
    std::size_t output;
    std::size_t error;
};

Pipe openPipeOrEnd() {
    auto pipe = openPipe();
    if (!pipe) {
        fatal_message(1, 0, "forkExecvGetOutErr: pipe() failed");
    }
    return std::move(*pipe);
}

void setNonBlockingOrEnd(const Ends& ends) {
    for (const UniqueFd* end : {&ends.input, &ends.output, &ends.error}) {
        if (!setNonBlocking(end->get())) {
            fatal_message(1, 0, "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed");
        }
    }
}

void closeIfFinished(UniqueFd& end, Transfer transfer) {
    if (transfer == Transfer::finished) {
        end.close();
    }
}

void waitUntilReady(PipeSelector& selector, std::span<WaitedEnd> waited) {
    while (selector.wait(waited, nullptr) == -1) {
        if (errno != EINTR) {
            throwSystemError("forkExecvGetOutErr: select() failed", errno);
        }
    }
}

// Moves bytes until the child has closed its outputs and the input is written or refused.
void pump(Ends& ends, const Callbacks& callbacks, const Sizes& sizes) {
    const auto inputBytes = std::make_unique_for_overwrite<char[]>(sizes.input);
    const auto outputBytes = std::make_unique_for_overwrite<char[]>(sizes.output);
    const auto errorBytes = std::make_unique_for_overwrite<char[]>(sizes.error);
    std::size_t pendingInput = 0;
    using enum WaitedEnd::For;
    std::array<WaitedEnd, 3> waited{{{ends.input, writing}, {ends.output, reading}, {ends.error, reading}}};
    PipeSelector selector(ends.highest());
    // A child that stops reading must cause EPIPE. Set after the fork, so that the child does not inherit it.
    const ScopedSignal ignored(SIGPIPE, SIG_IGN);
    while (ends.anyOpen()) {
        waitUntilReady(selector, waited);
        if (waited[0].ready) {
            closeIfFinished(ends.input, writeFromCallback(ends.input.get(), inputBytes.get(), sizes.input,
                                                          pendingInput, callbacks.source, callbacks.context));
        }
        if (waited[1].ready) {
            closeIfFinished(ends.output, readToCallback(ends.output.get(), callbacks.output,
                                                        callbacks.context, outputBytes.get(), sizes.output));
        }
        if (waited[2].ready) {
            closeIfFinished(ends.error, readToCallback(ends.error.get(), callbacks.error, callbacks.context,
                                                       errorBytes.get(), sizes.error));
        }
    }
}

int waitForChild(pid_t child) {
    int status = 0;
    pid_t waited = 0;
    do {
        waited = ::waitpid(child, &status, 0);
    } while (waited == -1 && (errno == EINTR || errno == ECHILD));
    return waited > 0 ? decodeWaitStatus(status).exitCode() : -1;
}

// The context of the string form's callbacks.
struct StringRun {
    std::string_view remaining;
    std::string* output;
    std::string* error;
};

std::size_t takeInput(char* buffer, std::size_t capacity, void* context) {
    auto& remaining = static_cast<StringRun*>(context)->remaining;
    const std::size_t count = remaining.copy(buffer, capacity);
    remaining.remove_prefix(count);
    return count;
}

void appendOutput(const char* bytes, std::size_t count, void* context) {
    static_cast<StringRun*>(context)->output->append(bytes, count);
}

void appendError(const char* bytes, std::size_t count, void* context) {
    static_cast<StringRun*>(context)->error->append(bytes, count);
}

const Environment& noEnvironment() {
    static const Environment empty;
    return empty;
}

} // namespace

int forkExecvGetOutErr(SourceCallback source, SinkCallback output, SinkCallback error,
                       const std::string& path, const std::vector<char*>& arguments, const std::string& user,
                       bool changeToHome, const Environment& environment, void* context,
                       std::size_t inputSize, std::size_t outputSize, std::size_t errorSize) {
    Pipe inputPipe = openPipeOrEnd();
    Pipe outputPipe = openPipeOrEnd();
    Pipe errorPipe = openPipeOrEnd();
    Ends ends{std::move(inputPipe.writeEnd), std::move(outputPipe.readEnd), std::move(errorPipe.readEnd)};
    setNonBlockingOrEnd(ends);
    const pid_t child =
        forkExecvPipes(inputPipe.readEnd.get(), outputPipe.writeEnd.get(), errorPipe.writeEnd.get(), path,
                       arguments, user, changeToHome, environment);
    inputPipe.readEnd.close();
    outputPipe.writeEnd.close();
    errorPipe.writeEnd.close();
    try {
        pump(ends, {source, output, error, context}, {inputSize, outputSize, errorSize});
    } catch (...) {
        ::kill(child, SIGTERM);
        // cppcheck-suppress unreadVariable ; closing the old ends is what it is for
        ends = Ends{};
        waitForChild(child);
        throw;
    }
    return waitForChild(child);
}

int forkExecvGetOutErr(const std::string& input, std::string* output, std::string* error,
                       const std::string& path, const std::vector<char*>& arguments, const std::string& user,
                       bool changeToHome, const Environment& environment) {
    StringRun run{input, output, error};
    return forkExecvGetOutErr(takeInput, output != nullptr ? appendOutput : nullptr,
                              error != nullptr ? appendError : nullptr, path, arguments, user, changeToHome,
                              environment, &run);
}

int forkExecvGetOutErr(const std::string& input, std::string* output, std::string* error,
                       const std::string& path, const std::vector<char*>& arguments, const std::string& user,
                       bool changeToHome) {
    return forkExecvGetOutErr(input, output, error, path, arguments, user, changeToHome, noEnvironment());
}

int forkExecvGetOutErr(const std::string& input, std::string* output, std::string* error,
                       const std::string& path, const std::vector<char*>& arguments) {
    return forkExecvGetOutErr(input, output, error, path, arguments, std::string(), true);
}

int forkExecvGetOutErr(std::string& output, std::string& error, const std::string& path,
                       const std::vector<char*>& arguments) {
    return forkExecvGetOutErr(std::string(), &output, &error, path, arguments);
}

} // namespace quelm
