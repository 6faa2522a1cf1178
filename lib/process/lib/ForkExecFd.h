// Runs a program between two descriptors and says how it ended.
#pragma once

namespace quelm {

// Runs `path` (no search along PATH) with `fd_in` as standard input and `fd_out` as standard output, standard
// error being the utility's own, and waits for it. `path` becomes argument 0 and the list behind it, closed
// by a null pointer, holds the others. -1 as a descriptor means /dev/null; 0, 1 and 2 are refused. Both
// descriptors stay the caller's.
// Returns the exit status, or -1 after one report on standard error: refused descriptors, no pipe, no child,
// a program that could not be run, a failed wait, a program killed, or one stopped (which is then left
// stopped). When memory for the arguments runs out, fatal_message says "malloc() failed: REASON" and the
// process ends with status 1.
[[gnu::sentinel]] int fork_exec_fd(int fd_in, int fd_out, const char* path, ...);

} // namespace quelm
