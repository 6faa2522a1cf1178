// The append-only log of hook script runs. docs/hooks.md shows the record.
#pragma once

#include <fstream>
#include <string>

#include <sys/time.h>

#include "lib/process/lib/ExecCmd.h"

namespace quelm {

// "[2024-03-05 14-07-09.042", the local time with its milliseconds; the closing bracket is the caller's.
std::string formatLogTime(const timeval& time);

class HookLog {
public:
    // Opens `path` for appending and creates it if absent. A log that cannot be opened swallows its records.
    explicit HookLog(const std::string& path);

    // Appends the record of a finished run, each line flushed. `finished` is the time stamp, although the
    // record calls it the start: readers of the log sort by it.
    void append(const ExecCmd& command, const timeval& finished);

private:
    std::ofstream stream_;
};

} // namespace quelm
