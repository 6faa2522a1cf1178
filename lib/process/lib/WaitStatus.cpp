#include "lib/process/lib/WaitStatus.h"

#include <sys/wait.h>

namespace quelm {

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

} // namespace quelm
