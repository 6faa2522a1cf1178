// errno is a result here: from the last read to the return nothing may set it or put an older value back.
#include "lib/process/lib/ForkExecv.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include <sys/select.h>
#include <sys/wait.h>

#include "cli/FatalMessage.h"
#include "cli/ScopedSignal.h"
#include "lib/process/lib/DescriptorSet.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/SystemError.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

namespace {

// The parent's ends of the three pipes.
struct Ends {
    UniqueFd input;
    UniqueFd output;
    UniqueFd error;

    bool anyOpen() const { return input.isOpen() || output.isOpen() || error.isOpen(); }
    int width() const { return std::max({input.get(), output.get(), error.get()}) + 1; }
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

// What select is asked for and what it answered.
class Readiness {
public:
    explicit Readiness(int width) : width_(width), reading_(width), writing_(width) {}

    void wait(const Ends& ends) {
        do {
            fill(ends);
            if (::select(width_, reading_.data(), writing_.data(), nullptr, nullptr) != -1) {
                return;
            }
        } while (errno == EINTR);
        throwSystemError("forkExecvGetOutErr: select() failed", errno);
    }
    bool canRead(const UniqueFd& end) const { return end.isOpen() && reading_.has(end.get()); }
    bool canWrite(const UniqueFd& end) const { return end.isOpen() && writing_.has(end.get()); }

private:
    void fill(const Ends& ends) {
        reading_.clear();
        writing_.clear();
        for (const UniqueFd* end : {&ends.output, &ends.error}) {
            if (end->isOpen()) {
                reading_.add(end->get());
            }
        }
        if (ends.input.isOpen()) {
            writing_.add(ends.input.get());
        }
    }

    int width_;
    DescriptorSet reading_;
    DescriptorSet writing_;
};

void closeIfFinished(UniqueFd& end, Transfer transfer) {
    if (transfer == Transfer::finished) {
        end.close();
    }
}

// Moves bytes until the child has closed its outputs and the input is used up or not wanted any more.
void pump(Ends& ends, const Callbacks& callbacks, const Sizes& sizes) {
    const auto inputBytes = std::make_unique_for_overwrite<char[]>(sizes.input);
    const auto outputBytes = std::make_unique_for_overwrite<char[]>(sizes.output);
    const auto errorBytes = std::make_unique_for_overwrite<char[]>(sizes.error);
    TransferBuffer input{inputBytes.get(), sizes.input};
    const TransferBuffer output{outputBytes.get(), sizes.output};
    const TransferBuffer error{errorBytes.get(), sizes.error};
    Readiness ready(ends.width());
    // A child that stops reading must show as EPIPE. Set after the fork, so that no child inherits it.
    const ScopedSignal ignored(SIGPIPE, SIG_IGN);
    while (ends.anyOpen()) {
        ready.wait(ends);
        if (ready.canWrite(ends.input)) {
            closeIfFinished(ends.input,
                            writeFromCallback(ends.input.get(), input, callbacks.source, callbacks.context));
        }
        if (ready.canRead(ends.output)) {
            closeIfFinished(ends.output,
                            readToCallback(ends.output.get(), output, callbacks.output, callbacks.context));
        }
        if (ready.canRead(ends.error)) {
            closeIfFinished(ends.error,
                            readToCallback(ends.error.get(), error, callbacks.error, callbacks.context));
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

// What the string form keeps behind its callbacks.
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
