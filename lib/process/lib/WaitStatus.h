// What waitpid told about a child.
#pragma once

namespace quelm {

enum class Ending { exited, killed, stopped, continued };

struct WaitStatus {
    Ending ending;
    // The exit status 0..255 of `exited`, the signal's number of `killed` and `stopped`, 0 of `continued`.
    int value;

    // The exit status, or -1 for every other ending.
    int exitCode() const { return ending == Ending::exited ? value : -1; }
};

// `status` as waitpid stored it, with or without WUNTRACED and WCONTINUED.
WaitStatus decodeWaitStatus(int status);

} // namespace quelm
