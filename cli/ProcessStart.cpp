#include "cli/ProcessStart.h"

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

} // namespace

void prepareProcess() {
    openStandardDescriptors();
    std::signal(SIGCHLD, SIG_DFL);
}

} // namespace quelm
