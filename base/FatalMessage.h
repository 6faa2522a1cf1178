// The messages of the C-style process layer: one that may end the process, and one that only reports.
#pragma once

namespace quelm {

// Prints the printf-style message on standard error and then on standard output, each with a newline added
// unless the text ends in one, and ends the process with `status`; with status 0 it returns. If errno is not
// 0 on entry, "\nSystem error N: TEXT" is appended. The base name of the recorded program path and ": " stand
// before the message. `reserved` is ignored. Preserves errno.
[[gnu::format(printf, 3, 4)]] void fatal_message(int status, int reserved, const char* format, ...);

// Records the path whose base name fatal_message prints. Copied; null or empty removes the prefix.
void setProgramPath(const char* path);

// Tells fatal_message that this process is a forked child: it then ends without running the destructors and
// exit handlers that belong to the parent. Call it in the child, right after fork.
void markForkedChild();

// Prints the printf-style message on standard error, with a newline added unless the format ends in one, and
// flushes it. Preserves errno.
[[gnu::format(printf, 1, 2)]] void reportLine(const char* format, ...);

} // namespace quelm
