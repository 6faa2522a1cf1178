#include "lib/process/lib/panel/VariadicExec.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/Capture.h"
#include "lib/process/lib/ChildSetup.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/PlainChild.h"

namespace quelm {

namespace {

std::size_t countOf(va_list arguments) {
    std::size_t count = 0;
    while (va_arg(arguments, const char*) != nullptr) {
        ++count;
    }
    return count;
}

} // namespace

ArgumentList::ArgumentList(const char* path, va_list arguments) {
    va_list counted;
    va_copy(counted, arguments);
    const std::size_t count = countOf(counted);
    va_end(counted);
    pointers_.reset(static_cast<char**>(std::malloc((count + 2) * sizeof(char*))));
    if (!pointers_) {
        fatal_message(1, 0, "malloc() failed: %s", std::strerror(errno));
        return;
    }
    // exec does not write through its pointers; they are not const for historical reasons.
    pointers_[0] = const_cast<char*>(path);
    for (std::size_t index = 1; index <= count; ++index) {
        pointers_[index] = const_cast<char*>(va_arg(arguments, const char*));
    }
    pointers_[count + 1] = nullptr;
}

pid_t fork_execv(int input, int output, int error, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return startProgram({input, output, error}, path, arguments.data(), "fork_execv: fork() failed");
}

pid_t fork_execl_pipes(int input, int output, int error, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return fork_execv_pipes(input, output, error, path, arguments.data());
}

int fork_execl_getouterr(char** output, char** error, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return fork_execv_getouterr(output, error, path, arguments.data());
}

int fork_execv_getout(char** output, const char* path, char* const argv[]) {
    *output = nullptr;
    CapturedRun run = captureRun(path, argv, Captured::outputOnly);
    *output = giveAway(run.output);
    return run.result;
}

int fork_execl_getout(char** output, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return fork_execv_getout(output, path, arguments.data());
}

int execl_and_report(bool quiet, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return exec_and_report(path, arguments.data(), quiet);
}

namespace {

constexpr int reasonSlot = STDERR_FILENO + 1;

bool isStandard(int descriptor) {
    return descriptor >= STDIN_FILENO && descriptor <= STDERR_FILENO;
}

[[noreturn]] void failChild(int descriptor) {
    const int reason = errno;
    (void)!::write(descriptor, &reason, sizeof reason);
    leaveChild(-1);
}

[[noreturn]] void becomeProgram(int input, int output, int reasonEnd, const char* path, char* const argv[]) {
    enterChild();
    const int reasonCopy = ::fcntl(reasonEnd, F_DUPFD, reasonSlot);
    if (reasonCopy == -1 || !placeDescriptors({input, output, STDERR_FILENO})) {
        std::fprintf(stderr, "fork_execv: dup() failed: %s\n", std::strerror(errno));
        leaveChild(-1);
    }
    ::dup2(reasonCopy, reasonSlot);
    ::fcntl(reasonSlot, F_SETFD, FD_CLOEXEC);
    quelm::closefrom(reasonSlot + 1);
    ::execv(path, argv);
    failChild(reasonSlot);
}

// The errno of a failed exec; 0 when the program runs.
int readReason(int descriptor) {
    int reason = 0;
    const ssize_t count = readSome(descriptor, reinterpret_cast<char*>(&reason), sizeof reason);
    return count == static_cast<ssize_t>(sizeof reason) ? reason : 0;
}

// EFAULT is what a list without its null pointer causes.
void reportExec(int reason) {
    if (reason == EFAULT) {
        reportLine("Error occured during execv():\n%s, possible reason - NULL parameter is absent in "
                   "util_exec(path, arg1, arg2, NULL) call.\n",
                   std::strerror(reason));
    } else {
        reportLine("Error occured during execv():\n%s.\n", std::strerror(reason));
    }
}

int waitAndReport(pid_t child) {
    int status = 0;
    if (waitUninterrupted(child, &status, WUNTRACED) == -1) {
        reportLine("Error occured during waiting the child process with pid: %d: %s\n", child,
                   std::strerror(errno));
        return -1;
    }
    const WaitStatus ending = decodeWaitStatus(status);
    if (ending.ending == Ending::killed) {
        reportLine("The child process with pid %d killed by signal %i\n", child, ending.value);
    } else if (ending.ending == Ending::stopped) {
        reportLine("The child process with pid %d stopped by signal %i\n", child, ending.value);
    }
    return ending.exitCode();
}

int run(int input, int output, const char* path, char* const argv[]) {
    std::optional<Pipe> reasonPipe = openPipe();
    if (!reasonPipe) {
        reportLine("fork_exec_fd pipe(): %s", std::strerror(errno));
        return -1;
    }
    prepareFork();
    const pid_t child = ::fork();
    if (child == 0) {
        becomeProgram(input, output, reasonPipe->writeEnd.get(), path, argv);
    }
    if (child == -1) {
        reportLine("Error occured during fork():\n%s", std::strerror(errno));
        return -1;
    }
    reasonPipe->writeEnd.close();
    const int reason = readReason(reasonPipe->readEnd.get());
    if (reason == 0) {
        return waitAndReport(child);
    }
    reportExec(reason);
    (void)waitUninterrupted(child, nullptr, 0);
    return -1;
}

} // namespace

int fork_exec_fd(int fd_in, int fd_out, const char* path, ...) {
    if (isStandard(fd_in) || isStandard(fd_out)) {
        reportLine("values 0,1,2 not allowed for variables fd_in & fd_out\n");
        return -1;
    }
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return run(fd_in, fd_out, path, arguments.data());
}

} // namespace quelm
