// Runs the hook scripts after a handler has changed, and logs the runs: php_configurator.d(5).
#pragma once

#include <string>
#include <vector>

#include <sys/time.h>

#include "base/File.h"
#include "lib/process/lib/ExecCmd.h"
#include "registry/PhpHandler.h"

namespace quelm {

inline constexpr const char* hookDirectory = "/etc/ovt/php_configurator.d/";
inline constexpr const char* hookLogPath = "/var/log/quelm/php_handler_configurators.log";

// The paths of the scripts in `directory`, ascending byte by byte ("10-a" before "9-a"). A script is an entry
// that is, through any symbolic links, a regular file with its owner-execute bit set; everything else is
// ignored. Throws std::filesystem::filesystem_error when the directory cannot be listed.
std::vector<std::string> listHookScripts(const std::string& directory);

// Runs every hook script, one after another, with `action` as its argument and the handler's data in PHP_*
// variables added to the inherited environment, and logs each run. What a script does or returns never fails
// the command. Throws std::filesystem::filesystem_error when the directory cannot be listed (nothing has been
// run or logged then), and std::runtime_error for a handler whose type is out of range.
void runConfigurators(const std::string& action, const PhpHandler& handler);

// The same with another directory and another log.
void runConfigurators(const std::string& action, const PhpHandler& handler, const std::string& directory,
                      const std::string& logPath);

// "[2024-03-05 14-07-09.042", the local time with its milliseconds; the closing bracket is the caller's.
std::string formatLogTime(const timeval& time);

class HookLog {
public:
    // Opens `path` for appending and creates it if absent. Records are dropped silently when the log cannot
    // be opened or written, or is a FIFO without a reader.
    explicit HookLog(const std::string& path);

    // Appends the record of a finished run, each line in a write of its own. The record calls `finished` the
    // start: deliberate, readers of the log sort by it.
    void append(const ExecCmd& command, const timeval& finished);

private:
    void writeLine(std::string line);

    UniqueFd file_;
};

} // namespace quelm
