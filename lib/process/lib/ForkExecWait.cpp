#include "lib/process/lib/ForkExecWait.h"

#include <cerrno>
#include <cstring>

#include <sys/wait.h>
#include <syslog.h>

#include "cli/Log.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

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

pid_t waitUninterrupted(pid_t pid, int* status, int options) {
    pid_t answered = -1;
    do {
        answered = ::waitpid(pid, status, options);
    } while (answered == -1 && errno == EINTR);
    return answered;
}

} // namespace quelm
