#include "tests/support/Captured.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quelm::test {

namespace {

void flushAll() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

// An exception must not unwind into the parent's copy of the test.
[[noreturn]] void runToTheEnd(const std::function<int()>& body) {
    int status = 99;
    try {
        errno = 0;
        status = body();
    } catch (const std::exception& failure) {
        std::cerr << "uncaught in the child: " << failure.what() << std::endl;
    } catch (...) {
        std::cerr << "uncaught in the child" << std::endl;
    }
    flushAll();
    ::_exit(status);
}

} // namespace

CapturedStream::CapturedStream(int stream)
    : stream_(stream), saved_(::fcntl(stream, F_DUPFD_CLOEXEC, 3)),
      file_(::memfd_create("captured", MFD_CLOEXEC)) {
    flushAll();
    ::dup2(file_, stream_);
}

CapturedStream::~CapturedStream() {
    flushAll();
    ::close(stream_);
    if (saved_ != -1) {
        ::dup2(saved_, stream_);
        ::close(saved_);
    }
    ::close(file_);
}

std::string CapturedStream::text() const {
    flushAll();
    std::string text;
    std::array<char, 65536> part{};
    ssize_t count = 0;
    while ((count = ::pread(file_, part.data(), part.size(), static_cast<off_t>(text.size()))) > 0) {
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    return text;
}

int ChildOutcome::exitStatus() const {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

ChildOutcome forkBody(const std::function<int()>& body) {
    const CapturedStreams captured;
    const pid_t child = ::fork();
    if (child == 0) {
        for (const int number : {SIGHUP, SIGINT, SIGQUIT}) {
            std::signal(number, SIG_DFL); // nohup and background jobs ignore them
        }
        runToTheEnd(body);
    }
    ChildOutcome outcome{};
    while (::waitpid(child, &outcome.waitStatus, 0) == -1 && errno == EINTR) {
    }
    outcome.output = captured.output();
    outcome.error = captured.error();
    return outcome;
}

testing::AssertionResult holdsInChild(const std::function<bool()>& body) {
    constexpr int good = 42;
    const ChildOutcome outcome = forkBody([&body] { return body() ? good : 1; });
    if (outcome.exitStatus() == good) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "wait status " << outcome.waitStatus << "\n"
                                       << outcome.output << outcome.error;
}

} // namespace quelm::test
