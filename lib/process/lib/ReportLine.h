// How the C-style process functions tell a failure that does not end the process.
#pragma once

namespace quelm {

// Prints the printf-style message on standard error, with a newline added unless the format ends in one, and
// flushes it. Keeps errno.
[[gnu::format(printf, 1, 2)]] void reportLine(const char* format, ...);

} // namespace quelm
