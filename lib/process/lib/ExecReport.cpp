#include "lib/process/lib/ExecReport.h"

#include <cerrno>
#include <cstdio>

#include "cli/FatalMessage.h"
#include "lib/process/lib/CapturedRun.h"
#include "lib/process/lib/OutputBuffer.h"

namespace quelm {

namespace {

// Whether there is a text is told by its length; it is printed up to its first NUL byte.
void reportFailure(const char* path, CapturedRun& run) {
    const bool hasError = run.error.length() != 0;
    const CText output(run.output.release());
    const CText error(run.error.release());
    if (output) {
        std::fputs(output.get(), stderr);
        std::fflush(stderr);
    }
    errno = 0; // left by reading the pipes; the failure is the program's, not the system's
    if (hasError) {
        fatal_message(0, 0, "%s execution failed:\n%s", path, error.get());
    } else {
        fatal_message(0, 0, "%s execution failed (no output)", path);
    }
}

} // namespace

int exec_and_report(const char* path, char* const argv[], bool quiet) {
    CapturedRun run = captureRun(path, argv);
    if (run.result != 0 && !quiet) {
        reportFailure(path, run);
    }
    return run.result;
}

} // namespace quelm
