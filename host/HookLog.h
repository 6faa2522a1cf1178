// The append-only log of hook script runs. docs/hooks.md shows the record.
#pragma once

#include <string>
#include <string_view>

#include <sys/time.h>

#include "lib/process/lib/ExecCmd.h"
#include "lib/process/lib/UniqueFd.h"

namespace quelm {

// "[2024-03-05 14-07-09.042", the local time with its milliseconds; the closing bracket is the caller's.
std::string formatLogTime(const timeval& time);

class HookLog {
public:
    // Opens `path` for appending and creates it if absent. A log that cannot be opened, or that is a FIFO
    // which nobody reads, swallows its records; so does one that cannot be written.
    explicit HookLog(const std::string& path);

    // Appends the record of a finished run, each line in a write of its own. `finished` is the time stamp,
    // although the record calls it the start: readers of the log sort by it.
    void append(const ExecCmd& command, const timeval& finished);

private:
    void writeLine(std::string line);

    UniqueFd file_;
};

} // namespace quelm
