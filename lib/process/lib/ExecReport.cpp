#include "lib/process/lib/ExecReport.h"

#include <cerrno>
#include <cstdio>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ForkCapture.h"
#include "lib/process/lib/OutputBuffer.h"

namespace quelm {

namespace {

bool hasText(const CText& text) {
    return text && *text != '\0';
}

void reportFailure(const char* path, const CText& output, const CText& error) {
    if (hasText(output)) {
        std::fputs(output.get(), stderr);
        std::fflush(stderr);
    }
    errno = 0; // left by reading the pipes; the failure is the program's, not the system's
    if (hasText(error)) {
        fatal_message(0, 0, "%s execution failed:\n%s", path, error.get());
    } else {
        fatal_message(0, 0, "%s execution failed (no output)", path);
    }
}

} // namespace

int exec_and_report(const char* path, char* const argv[], bool quiet) {
    char* outputBlock = nullptr;
    char* errorBlock = nullptr;
    const int result = fork_execv_getouterr(&outputBlock, &errorBlock, path, argv);
    const CText output(outputBlock);
    const CText error(errorBlock);
    if (result != 0 && !quiet) {
        reportFailure(path, output, error);
    }
    return result;
}

} // namespace quelm
