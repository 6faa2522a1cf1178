#include "lib/process/lib/PlainChild.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "base/FatalMessage.h"
#include "base/Log.h"

namespace quelm {

namespace {

constexpr int childFailed = -1; // seen by the parent as 255

[[noreturn]] void becomeProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[]) {
    enterChild();
    if (!placeDescriptors(descriptors)) {
        std::fprintf(stderr, "fork_execv: dup() failed: %s\n", std::strerror(errno));
        leaveChild(childFailed);
    }
    quelm::closefrom(STDERR_FILENO + 1);
    ::execv(path, argv);
    std::fprintf(stderr, "fork_execv: execv(\"%s\") failed: %s\n", path, std::strerror(errno));
    leaveChild(childFailed);
}

} // namespace

pid_t forkProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[]) {
    prepareFork();
    const pid_t child = ::fork();
    if (child == 0) {
        becomeProgram(descriptors, path, argv);
    }
    return child;
}

pid_t startProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[],
                   const char* forkFailure) {
    const pid_t child = forkProgram(descriptors, path, argv);
    if (child == -1) {
        fatal_message(1, 0, "%s", forkFailure);
    }
    return child;
}

pid_t fork_execv_pipes(int input, int output, int error, const char* path, char* const argv[]) {
    return startProgram({input, output, error}, path, argv, "fork_execv_pipes: fork() failed");
}

namespace {

void logFailedWait(long asked, long answered, const char* name) {
    if (answered == 0) {
        log_message(LOG_ERR, "waitpid(%ld) for '%s' process returned unexpected 0 code", asked, name);
    } else {
        log_message(LOG_ERR, "waitpid(%ld) for '%s' process failed: %s (%d)", asked, name,
                    std::strerror(errno), errno);
    }
}

void logEnding(long asked, long answered, const char* name, const WaitStatus& ending) {
    switch (ending.ending) {
    case Ending::exited:
        break;
    case Ending::killed:
        log_message(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' killed by signal %d", asked, answered, name,
                    ending.value);
        break;
    case Ending::stopped:
        log_message(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' stopped by signal %d", asked, answered, name,
                    ending.value);
        break;
    case Ending::continued:
        log_message(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' continued", asked, answered, name);
        break;
    }
}

} // namespace

WaitStatus decodeWaitStatus(int status) {
    if (WIFEXITED(status)) {
        return {Ending::exited, WEXITSTATUS(status)};
    }
    if (WIFCONTINUED(status)) {
        return {Ending::continued, 0};
    }
    if (WIFSTOPPED(status)) {
        return {Ending::stopped, WSTOPSIG(status)};
    }
    return {Ending::killed, WTERMSIG(status)};
}

pid_t waitUninterrupted(pid_t pid, int* status, int options) {
    pid_t answered = -1;
    do {
        answered = ::waitpid(pid, status, options);
    } while (answered == -1 && errno == EINTR);
    return answered;
}

int fork_exec_wait(pid_t pid, const char* name, int* status) {
    const char* known = name != nullptr ? name : "<unknown>";
    if (pid < 0) {
        log_message(LOG_ERR, "fork before spawning '%s' failed", known);
        return -1;
    }
    errno = 0;
    int word = 0;
    const pid_t answered = ::waitpid(pid, &word, WUNTRACED);
    if (answered <= 0) {
        logFailedWait(pid, answered, known);
        return -1;
    }
    if (status != nullptr) {
        *status = word;
    }
    const WaitStatus ending = decodeWaitStatus(word);
    logEnding(pid, answered, known, ending);
    return ending.exitCode();
}

} // namespace quelm
