// The scripts are listed before the log is opened: a directory that cannot be listed leaves no trace in the
// log, and one without scripts still creates it. The clock is read after each run.
#include "host/HookRunner.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/time.h>

#include "base/ProcessState.h"
#include "lib/process/lib/ExecCmd.h"

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

// O_NONBLOCK is only for the opening; writes block as usual.
HookLog::HookLog(const std::string& path) : file_(openWithoutHanging(path, O_WRONLY | O_CREAT | O_APPEND)) {
    if (file_.isOpen()) {
        ::fcntl(file_.get(), F_SETFL, O_APPEND);
    }
}

void HookLog::append(const ExecCmd& command, const timeval& finished) {
    // A FIFO whose reader has exited must not end the command.
    const ScopedSignal unread(SIGPIPE, SIG_IGN);
    writeLine(formatLogTime(finished) + "] Start: " + command.commandText());
    for (const auto& [name, value] : command.environment()) {
        writeLine(std::string(name).append(" = ").append(value));
    }
    writeLine("stdout: " + command.standardOutput());
    writeLine("stderr: " + command.standardError());
    writeLine("Exit code: " + std::to_string(command.exitCode()));
}

// After a failed write the rest of this run's log is dropped.
void HookLog::writeLine(std::string line) {
    line += '\n';
    if (file_.isOpen() && writeAll(file_.get(), line) < line.size()) {
        file_.close();
    }
}

namespace fs = std::filesystem;

namespace {

// Tests the permission bit and not access(2), which lets root execute what its owner may not.
bool isScript(const fs::directory_entry& entry) {
    std::error_code ignored;
    const fs::file_status status = entry.status(ignored);
    return fs::is_regular_file(status) && (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
}

void setVariables(ExecCmd& command, const PhpHandler& handler) {
    command.setEnv("PHP_ID", handler.id);
    command.setEnv("PHP_PATH", handler.path);
    command.setEnv("PHP_CLI", handler.clipath);
    command.setEnv("PHP_INI", handler.phpini);
    command.setEnv("PHP_VERSION", handler.version);
    command.setEnv("PHP_TYPE", std::string(formatHandlerType(handler)));
}

timeval now() {
    timeval time{};
    ::gettimeofday(&time, nullptr);
    return time;
}

} // namespace

std::vector<std::string> listHookScripts(const std::string& directory) {
    std::vector<std::string> scripts;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (isScript(entry)) {
            scripts.push_back(entry.path().string());
        }
    }
    std::sort(scripts.begin(), scripts.end());
    return scripts;
}

void runConfigurators(const std::string& action, const PhpHandler& handler) {
    runConfigurators(action, handler, hookDirectory, hookLogPath);
}

void runConfigurators(const std::string& action, const PhpHandler& handler, const std::string& directory,
                      const std::string& logPath) {
    const std::vector<std::string> scripts = listHookScripts(directory);
    HookLog log(logPath);
    for (const std::string& script : scripts) {
        ExecCmd command(script);
        command.addArg(action);
        setVariables(command, handler);
        command.runNoThrow();
        log.append(command, now());
    }
}

} // namespace quelm
