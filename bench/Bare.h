// Fork, exec, read and wait as a C programmer writes them without a library: the yardsticks for the children.
#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bare {

enum class Child {
    plain,  // takes its two outputs and becomes the program
    careful // also takes an empty input, resets its signals and closes what it must not inherit
};

struct Outcome {
    long bytes = -1; // -1: the program failed
    std::string output;
    std::string error;
};

inline void closeInherited() {
    DIR* const directory = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(directory)) {
        const int descriptor = std::atoi(entry->d_name);
        if (descriptor > STDERR_FILENO && descriptor != ::dirfd(directory)) {
            ::close(descriptor);
        }
    }
    ::closedir(directory);
}

inline void take(int descriptor, int slot) {
    ::dup2(descriptor, slot);
    ::close(descriptor);
}

[[noreturn]] inline void becomeProgram(char* const* argv, int input, int output, int error) {
    if (input != -1) {
        std::signal(SIGPIPE, SIG_DFL);
        std::signal(SIGCHLD, SIG_DFL);
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        take(input, STDIN_FILENO);
    }
    take(output, STDOUT_FILENO);
    take(error, STDERR_FILENO);
    if (input != -1) {
        closeInherited();
    }
    ::execv(argv[0], argv);
    ::_exit(127);
}

// Reads both ends until they are at their end, in blocks of 4096 bytes; keeps the bytes only when asked to.
inline void drain(Outcome& outcome, int output, int error, bool keep) {
    std::array<pollfd, 2> ends{{{output, POLLIN, 0}, {error, POLLIN, 0}}};
    std::array<std::string*, 2> texts{&outcome.output, &outcome.error};
    std::array<char, 4096> block;
    for (int open = 2; open > 0;) {
        ::poll(ends.data(), ends.size(), -1);
        for (std::size_t stream = 0; stream < ends.size(); ++stream) {
            if (ends[stream].revents == 0) {
                continue;
            }
            const ssize_t count = ::read(ends[stream].fd, block.data(), block.size());
            if (count == 0) {
                ends[stream].fd = -1;
                --open;
            } else if (count > 0) {
                outcome.bytes += count;
                if (keep) {
                    texts[stream]->append(block.data(), static_cast<std::size_t>(count));
                }
            }
        }
    }
}

// Runs the program, reads what it prints and waits for it.
inline Outcome run(char* const* argv, Child kind, bool keep) {
    std::array<int, 2> input{-1, -1};
    std::array<int, 2> output{};
    std::array<int, 2> error{};
    if ((kind == Child::careful && ::pipe2(input.data(), O_CLOEXEC) != 0) ||
        ::pipe2(output.data(), O_CLOEXEC) != 0 || ::pipe2(error.data(), O_CLOEXEC) != 0) {
        return {};
    }
    const pid_t child = ::fork();
    if (child == 0) {
        becomeProgram(argv, input[0], output[1], error[1]);
    }
    if (kind == Child::careful) {
        ::close(input[0]);
        ::close(input[1]);
    }
    ::close(output[1]);
    ::close(error[1]);
    Outcome outcome{.bytes = 0, .output = {}, .error = {}};
    drain(outcome, output[0], error[0], keep);
    ::close(output[0]);
    ::close(error[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (status != 0) {
        outcome.bytes = -1;
    }
    return outcome;
}

} // namespace bare
