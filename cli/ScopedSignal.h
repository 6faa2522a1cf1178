// Gives a signal another disposition for the length of a block.
#pragma once

#include <cerrno>
#include <csignal>

namespace quelm {

// `handler` is SIG_DFL or SIG_IGN. Keeps errno when it restores.
class ScopedSignal {
public:
    ScopedSignal(int signal, void (*handler)(int)) : signal_(signal) {
        struct sigaction wanted {};
        wanted.sa_handler = handler;
        ::sigaction(signal_, &wanted, &previous_);
    }
    ScopedSignal(const ScopedSignal&) = delete;
    ScopedSignal& operator=(const ScopedSignal&) = delete;
    ~ScopedSignal() {
        const int kept = errno;
        ::sigaction(signal_, &previous_, nullptr);
        errno = kept;
    }

private:
    int signal_;
    struct sigaction previous_ {};
};

} // namespace quelm
