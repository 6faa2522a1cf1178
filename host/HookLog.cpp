#include "host/HookLog.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include "cli/ScopedSignal.h"

namespace quelm {

std::string formatLogTime(const timeval& time) {
    tm local{};
    ::localtime_r(&time.tv_sec, &local);
    std::array<char, 64> seconds;
    const std::size_t length = std::strftime(seconds.data(), seconds.size(), "[%Y-%m-%d %H-%M-%S.", &local);
    std::array<char, 8> milliseconds;
    std::snprintf(milliseconds.data(), milliseconds.size(), "%03d", static_cast<int>(time.tv_usec / 1000));
    return std::string(seconds.data(), length) + milliseconds.data();
}

namespace {

UniqueFd openForAppending(const std::string& path, int waiting) {
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY;
    constexpr mode_t newFileMode = 0666;
    return UniqueFd(::open(path.c_str(), flags | waiting, newFileMode));
}

} // namespace

// O_NONBLOCK keeps a FIFO without a reader from holding up the command; once open, the log is written like
// any file. Only a file with a lease on it answers EWOULDBLOCK: its holder is waited for.
HookLog::HookLog(const std::string& path) : file_(openForAppending(path, O_NONBLOCK)) {
    if (!file_.isOpen() && errno == EWOULDBLOCK) {
        file_ = openForAppending(path, 0);
    }
    if (file_.isOpen()) {
        ::fcntl(file_.get(), F_SETFL, O_APPEND);
    }
}

void HookLog::append(const ExecCmd& command, const timeval& finished) {
    // Neither a size limit nor a reader that went away may end the command.
    const ScopedSignal tooLarge(SIGXFSZ, SIG_IGN);
    const ScopedSignal unread(SIGPIPE, SIG_IGN);
    writeLine(formatLogTime(finished) + "] Start: " + command.commandText());
    for (const auto& [name, value] : command.environment()) {
        writeLine(std::string(name).append(" = ").append(value));
    }
    writeLine("stdout: " + command.standardOutput());
    writeLine("stderr: " + command.standardError());
    writeLine("Exit code: " + std::to_string(command.exitCode()));
}

// After a failed write the rest of the log is lost, as it would be with a stream.
void HookLog::writeLine(std::string line) {
    line += '\n';
    std::string_view rest = line;
    while (file_.isOpen() && !rest.empty()) {
        const ssize_t count = ::write(file_.get(), rest.data(), rest.size());
        if (count >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            file_.close();
        }
    }
}

} // namespace quelm
