// Waits for one child and logs an ending that is no exit.
#pragma once

#include <sys/types.h>

namespace quelm {

// Waits until `pid` has ended or stopped. Returns the exit status; -1 when it was killed, stopped or
// continued, or when it could not be waited for (an interrupted wait is not repeated), each with a line in
// the log: level 3 for what failed, 4 for a signal. A negative `pid` stands for a fork that failed and is
// logged so. `name` is what the log calls the child; null reads as "<unknown>". `status`, if given, gets the
// word that waitpid stored, and is left alone when there is none. errno is 0 afterwards unless the wait
// failed; a negative pid leaves it alone.
int fork_exec_wait(pid_t pid, const char* name, int* status = nullptr);

// waitpid, repeated for as long as a signal interrupts it.
pid_t waitUninterrupted(pid_t pid, int* status, int options);

} // namespace quelm
