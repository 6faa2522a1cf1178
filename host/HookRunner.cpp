// The listing comes before the log is opened: a directory that cannot be listed leaves no trace in the log,
// and one without scripts still creates it. The clock is read after each run.
#include "host/HookRunner.h"

#include <sys/time.h>

#include "host/HookLog.h"
#include "host/HookScripts.h"
#include "lib/process/lib/ExecCmd.h"

namespace quelm {

namespace {

void describe(const PhpHandler& handler, ExecCmd& command) {
    command.setEnv("PHP_ID", handler.id);
    command.setEnv("PHP_PATH", handler.path);
    command.setEnv("PHP_CLI", handler.clipath);
    command.setEnv("PHP_INI", handler.phpini);
    command.setEnv("PHP_VERSION", handler.version);
    command.setEnv("PHP_TYPE", formatHandlerType(handler));
}

timeval now() {
    timeval time{};
    ::gettimeofday(&time, nullptr);
    return time;
}

} // namespace

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
        describe(handler, command);
        command.runNoThrow();
        log.append(command, now());
    }
}

} // namespace quelm
