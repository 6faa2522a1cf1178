// The state of the process that belongs to the caller: standard descriptors, signal dispositions, errno.
#pragma once

#include <cerrno>
#include <csignal>

namespace quelm {

// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed, so that no other file or pipe gets
// that number; resets SIGCHLD to its default, so that children can be waited for under a caller that ignores
// it; ignores SIGXFSZ, so that a write beyond a file size limit fails like any other write. Nothing else of
// the caller's state is touched.
void prepareProcess();

// For a forked child, before exec: resets SIGXFSZ to what prepareProcess found. Does nothing when that was
// never called.
void restoreCallersSignals();

// Preserves errno over a block: a run publishes it and reports print it, so cleanup must not change it.
class KeepErrno {
public:
    KeepErrno() = default;
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;
    ~KeepErrno() { errno = kept_; }

private:
    int kept_ = errno;
};

// Gives a signal another disposition, SIG_DFL or SIG_IGN, for the length of a block. Preserves errno.
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
        const KeepErrno keep;
        ::sigaction(signal_, &previous_, nullptr);
    }

private:
    int signal_;
    struct sigaction previous_ {};
};

} // namespace quelm
