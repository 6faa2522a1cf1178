#include "lib/process/lib/ChildSetup.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "cli/UtilityErrorStream.h"

namespace quelm {

void prepareFork() {
    const int kept = errno;
    errorStream.flush();
    std::cout.flush();
    std::cerr.flush();
    std::fflush(stdout);
    std::fflush(stderr);
    std::signal(SIGCHLD, SIG_DFL);
    errno = kept;
}

void enterChild() {
    markForkedChild();
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// /dev/null is opened before the comparison: when the slot was closed, open may return the slot itself, and
// closing "the copy" would then close it again.
bool placeDescriptor(int descriptor, int slot) {
    const int source = descriptor == -1 ? ::open("/dev/null", O_RDWR) : descriptor;
    if (source == -1) {
        return false;
    }
    if (source == slot) {
        return true;
    }
    if (::dup2(source, slot) == -1) {
        return false;
    }
    ::close(source);
    return true;
}

void leaveChild(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(status);
}

} // namespace quelm
