// The C-style way to run a program: captures what it prints and reports its failure.
#pragma once

#include "base/ByteBuffer.h"
#include "base/File.h"

namespace quelm {

// Runs `path` (no search along PATH) with `argv`, whose last element is null, on the utility's own standard
// input, and waits for it. Returns the exit status; -1 when the program was killed, stopped or could not be
// waited for; 255 when it could not be run, with the reason in `*error`.
// `*output` and `*error` become the NUL-terminated standard output and standard error, for the caller to
// release with free, or null. An empty text is the normal form of "printed nothing".
// The end of the child is noticed within about a second even when a process that it left behind still holds
// its pipes; what that process prints later is lost.
// A pipe that cannot be made ends the process with status 1 and "fork_execv_getouterr: pipe() failed" or
// "fork_execv_getouterr: fcntl(O_NONBLOCK) failed" of fatal_message.
int fork_execv_getouterr(char** output, char** error, const char* path, char* const argv[]);

// Runs `path` in the same way and returns the same. A result other than 0 is reported unless `quiet`: what
// the program printed on standard output goes to standard error, then fatal_message prints "PATH execution
// failed:" and the program's standard error on the next line, or "PATH execution failed (no output)" when
// standard error was empty. Both texts are printed up to their first NUL byte.
int exec_and_report(const char* path, char* const argv[], bool quiet);

// The parts of which these two are made.

// What a run leaves behind. The buffers may hold NUL bytes.
struct CapturedRun {
    int result;
    ByteBuffer output;
    ByteBuffer error;
};

enum class Captured { outputAndError, outputOnly };

// The run itself. With outputOnly standard error stays the utility's own.
CapturedRun captureRun(const char* path, char* const argv[], Captured captured = Captured::outputAndError);

// One read from the non-blocking `end`, appended to the buffer, which is grown first so that more than 2048
// bytes are free. At end of file `end` is closed. A failed read closes it too, prints "fork_exec*: read(pipe)
// failed: REASON" on standard error and leaves errno 0; having nothing to read yet is no failure and leaves
// EAGAIN. When memory runs out, fatal_message says "Cannot allocate memory" and the process ends with
// status 1.
void readOnce(UniqueFd& end, ByteBuffer& buffer);

// The buffer's block, NUL-terminated, to be released with free; null if nothing was ever read into it.
char* giveAway(ByteBuffer& buffer);

} // namespace quelm
