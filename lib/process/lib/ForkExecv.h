// Runs a program to its end: feeds its standard input, collects its standard output and standard error.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/StartAsUser.h"

namespace quelm {

// Runs `path` as described at forkExecvPipes (StartAsUser.h) and waits for its end. The source and the sinks
// may be null and share `context`; the sizes are those of the transfer buffers and must not be 0.
//
// Returns the exit status, or -1 when the child was killed by a signal or could not be waited for. errno is
// not restored: EAGAIN means that the run had to wait for the child at least once.
//
// Throws SystemError, and what a callback throws; the child has then been sent SIGTERM and waited for,
// without a time limit. A failure before there is a child (pipe, fcntl) ends the process through
// fatal_message with status 1. SIGPIPE is ignored while the callbacks run and then restored; SIGCHLD is set
// to its default for good.
int forkExecvGetOutErr(SourceCallback source, SinkCallback output, SinkCallback error,
                       const std::string& path, const std::vector<char*>& arguments, const std::string& user,
                       bool changeToHome, const Environment& environment, void* context,
                       std::size_t inputSize = 4096, std::size_t outputSize = 4096,
                       std::size_t errorSize = 4096);

// The same with strings: `input` is fed, and what comes is appended to the two strings; a null one drops it.
int forkExecvGetOutErr(const std::string& input, std::string* output, std::string* error,
                       const std::string& path, const std::vector<char*>& arguments, const std::string& user,
                       bool changeToHome, const Environment& environment);

// Nothing added to the environment.
int forkExecvGetOutErr(const std::string& input, std::string* output, std::string* error,
                       const std::string& path, const std::vector<char*>& arguments, const std::string& user,
                       bool changeToHome);

// And no switch of the user; the home-directory flag is true.
int forkExecvGetOutErr(const std::string& input, std::string* output, std::string* error,
                       const std::string& path, const std::vector<char*>& arguments);

// And an empty standard input.
int forkExecvGetOutErr(std::string& output, std::string& error, const std::string& path,
                       const std::vector<char*>& arguments);

} // namespace quelm
