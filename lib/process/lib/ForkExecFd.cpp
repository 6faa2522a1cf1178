// A pipe that closes by itself when exec succeeds carries the reason of a failed exec to the parent, which
// can so tell "could not be run" from a program that ends with a status of its own.
#include "lib/process/lib/ForkExecFd.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/process/lib/ArgumentList.h"
#include "lib/process/lib/ChildSetup.h"
#include "lib/process/lib/CloseFrom.h"
#include "lib/process/lib/ForkExecWait.h"
#include "lib/process/lib/ForkPipes.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/ReportLine.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

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
    ssize_t count = -1;
    do {
        count = ::read(descriptor, &reason, sizeof reason);
    } while (count == -1 && errno == EINTR);
    return count == static_cast<ssize_t>(sizeof reason) ? reason : 0;
}

// An argument list without its null pointer runs on into whatever lies behind it.
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
