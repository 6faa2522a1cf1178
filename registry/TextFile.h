// A file read and written as a whole: read at once, overwritten at once and in place, never locked.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace quelm {

// The NUL-terminated text of a file; size 0 when there is none.
struct FileText {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
};

// Empty when the file is missing, no regular file, or cannot be opened or read to its end; unless it is
// missing, the log says why, at error level, and errno stays.
FileText readTextFile(const std::string& path);

// Overwrites the file, which is made with the process's default mode when it is missing. When it cannot be
// opened, written or closed, the log says so, at error level.
void writeTextFile(const std::string& path, std::string_view text);

} // namespace quelm
