// Runs a program and tells the user when it failed.
#pragma once

namespace quelm {

// Runs `path` as fork_execv_getouterr does and returns its result. A result other than 0 is reported unless
// `quiet`: what the program printed on standard output goes to standard error, then fatal_message prints
// "PATH execution failed:" and the program's standard error on the next line, or "PATH execution failed (no
// output)" when not a byte came there. Both texts are printed up to their first NUL byte.
int exec_and_report(const char* path, char* const argv[], bool quiet);

} // namespace quelm
