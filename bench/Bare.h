// Fork, exec, read and wait as a C programmer writes them without a library: the yardstick for the children.
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bare {

// Starts the program with its two outputs on the given descriptors.
inline pid_t start(char* const* argv, int output, int error) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(output, STDOUT_FILENO);
        ::dup2(error, STDERR_FILENO);
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    return child;
}

// Reads both ends until they are at their end, in blocks of 4096 bytes. Returns the number of bytes.
inline long drain(int output, int error) {
    std::array<pollfd, 2> ends{{{output, POLLIN, 0}, {error, POLLIN, 0}}};
    std::array<char, 4096> block;
    long bytes = 0;
    for (int open = 2; open > 0;) {
        ::poll(ends.data(), ends.size(), -1);
        for (pollfd& end : ends) {
            if (end.revents == 0) {
                continue;
            }
            const ssize_t count = ::read(end.fd, block.data(), block.size());
            bytes += std::max<ssize_t>(count, 0);
            if (count == 0) {
                end.fd = -1;
                --open;
            }
        }
    }
    return bytes;
}

// Runs the program, reads what it prints and waits for it. Returns the number of bytes that it printed.
inline long run(char* const* argv) {
    std::array<int, 2> output{};
    std::array<int, 2> error{};
    if (::pipe2(output.data(), O_CLOEXEC) != 0 || ::pipe2(error.data(), O_CLOEXEC) != 0) {
        return -1;
    }
    const pid_t child = start(argv, output[1], error[1]);
    ::close(output[1]);
    ::close(error[1]);
    const long bytes = drain(output[0], error[0]);
    ::close(output[0]);
    ::close(error[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? bytes : -1;
}

} // namespace bare
