#include "tests/support/InChild.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quelm::test {

namespace {

constexpr int uncaught = 99;

class Recording {
public:
    Recording() : descriptor_(::memfd_create("recording", MFD_CLOEXEC)) {
        if (descriptor_ < 0) {
            throw std::runtime_error("memfd_create failed");
        }
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording() { ::close(descriptor_); }

    void standFor(int stream) const { ::dup2(descriptor_, stream); }

    std::string text() const {
        std::string all;
        std::array<char, 65536> block;
        for (;;) {
            const ssize_t count =
                ::pread(descriptor_, block.data(), block.size(), static_cast<off_t>(all.size()));
            if (count <= 0) {
                return all;
            }
            all.append(block.data(), static_cast<std::size_t>(count));
        }
    }

private:
    int descriptor_;
};

void flushAll() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

// An exception must not unwind into the parent's copy of the test.
[[noreturn]] void runToTheEnd(const std::function<void()>& body) {
    int status = 0;
    try {
        errno = 0;
        body();
    } catch (const std::exception& failure) {
        std::cerr << "uncaught in the child: " << failure.what() << std::endl;
        status = uncaught;
    } catch (...) {
        status = uncaught;
    }
    flushAll();
    ::_exit(status);
}

} // namespace

int ChildOutcome::exitStatus() const {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

ChildOutcome inChild(const std::function<void()>& body) {
    const Recording output;
    const Recording error;
    flushAll();
    const pid_t child = ::fork();
    if (child == 0) {
        output.standFor(STDOUT_FILENO);
        error.standFor(STDERR_FILENO);
        runToTheEnd(body);
    }
    ChildOutcome outcome{};
    while (::waitpid(child, &outcome.waitStatus, 0) == -1 && errno == EINTR) {
    }
    outcome.output = output.text();
    outcome.error = error.text();
    return outcome;
}

} // namespace quelm::test
