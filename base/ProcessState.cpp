#include "base/ProcessState.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace quelm {

namespace {

// The lowest free number is what open returns, so going up from 0 puts each descriptor where it belongs.
void openStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) == -1) {
            (void)::open("/dev/null", O_RDWR);
        }
    }
}

// SIG_ERR until prepareProcess has replaced it.
void (*callersFileSizeHandler)(int) = SIG_ERR;

} // namespace

void prepareProcess() {
    openStandardDescriptors();
    std::signal(SIGCHLD, SIG_DFL);
    callersFileSizeHandler = std::signal(SIGXFSZ, SIG_IGN);
}

void restoreCallersSignals() {
    if (callersFileSizeHandler != SIG_ERR) {
        std::signal(SIGXFSZ, callersFileSizeHandler);
    }
}

} // namespace quelm
