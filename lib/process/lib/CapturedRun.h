// What a captured run leaves behind, with the lengths of its texts: a text may hold NUL bytes, which the
// C-style functions cannot tell from its end.
#pragma once

#include "lib/process/lib/OutputBuffer.h"

namespace quelm {

struct CapturedRun {
    int result;
    OutputBuffer output;
    OutputBuffer error;
};

// The run behind fork_execv_getouterr, whose description it shares.
CapturedRun captureRun(const char* path, char* const argv[]);

} // namespace quelm
