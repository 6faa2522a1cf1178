#include "host/HookLog.h"

#include <array>
#include <cstdio>
#include <ctime>

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

HookLog::HookLog(const std::string& path) : stream_(path, std::ios::out | std::ios::app) {}

void HookLog::append(const ExecCmd& command, const timeval& finished) {
    stream_ << formatLogTime(finished) << "] Start: " << command.commandText() << std::endl;
    for (const auto& [name, value] : command.environment()) {
        stream_ << name << " = " << value << std::endl;
    }
    stream_ << "stdout: " << command.standardOutput() << std::endl;
    stream_ << "stderr: " << command.standardError() << std::endl;
    stream_ << "Exit code: " << command.exitCode() << std::endl;
}

} // namespace quelm
