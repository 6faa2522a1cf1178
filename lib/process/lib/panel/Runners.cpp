#include "lib/process/lib/panel/Runners.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <utility>

#include <unistd.h>

#include "base/FatalMessage.h"
#include "base/PanelTools.h"
#include "base/ProcessState.h"
#include "lib/process/lib/Capture.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/PlainChild.h"

namespace quelm {

namespace {

constexpr const char* libraryRoot = "/usr/lib/quelm-9.0";

int execTool(const std::string& path, const std::vector<std::string>& arguments, ToolFailure failure) {
    ArgVector vector{path};
    for (const std::string& argument : arguments) {
        vector.add(argument);
    }
    return exec_and_report(path.c_str(), vector.data(), failure == ToolFailure::quiet);
}

} // namespace

int exec_admin_tool(const std::string& name, const std::vector<std::string>& arguments, ToolFailure failure) {
    if (name.find('/') != std::string::npos) {
        reportLine("Utility name '%s' is invalid. Use only utility name without path.", name.c_str());
        return -1;
    }
    return execTool(adminTool(panelRoot, name), arguments, failure);
}

int exec_library_tool(const std::string& name, const std::vector<std::string>& arguments,
                      ToolFailure failure) {
    return execTool(std::string(libraryRoot) + "/" + name, arguments, failure);
}

int fork_and_wait(const char* path, char* const argv[]) {
    const pid_t child =
        startProgram({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}, path, argv, "Unable to fork");
    int status = 0;
    return waitUninterrupted(child, &status, 0) == child ? decodeWaitStatus(status).exitCode() : -1;
}

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
    // exec does not write through its pointers; they are not const for historical reasons.
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

// Closes our end of the pipe first, because the command may wait for that. Nothing when the wait failed.
std::optional<int> finish(ShellCommand& command) {
    command.end.close();
    int status = 0;
    if (waitUninterrupted(command.child, &status, 0) == -1) {
        return std::nullopt;
    }
    return decodeWaitStatus(status).exitCode();
}

constexpr std::size_t firstCapacity = 4096;

// Reads and drops the rest of the output, so that the command is not killed by SIGPIPE. Returns whether there
// was any.
bool drain(int descriptor) {
    bool any = false;
    std::array<char, firstCapacity> dropped;
    while (readSome(descriptor, dropped.data(), dropped.size()) > 0) {
        any = true;
    }
    return any;
}

// A failed read counts as the end.
PopenFailure collect(int descriptor, ByteBuffer& output) {
    const bool full = readToEnd(descriptor, output) == ReadEnd::noMemory;
    return full && drain(descriptor) ? PopenFailure::cutOutput : PopenFailure::none;
}

int run(const char* command, char** output, PopenFailure& failure) {
    *output = nullptr;
    ByteBuffer collected;
    if (!collected.reserve(firstCapacity)) {
        failure = PopenFailure::noMemory;
        return -1;
    }
    std::optional<ShellCommand> running = start(command, Direction::fromCommand);
    if (!running) {
        failure = PopenFailure::notStarted;
        return -1;
    }
    failure = collect(running->end.get(), collected);
    const std::optional<int> result = finish(*running);
    if (!result) {
        failure = PopenFailure::notStarted;
        return -1;
    }
    collected.terminate();
    *output = collected.release().release();
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
