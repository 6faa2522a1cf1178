// Starts a program on three given descriptors.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

namespace quelm {

using Environment = std::map<std::string, std::string>;

// Puts a descriptor on its standard slot with placeDescriptor. Throws SystemError "dup2Custom failed".
void dup2Custom(int descriptor, int slot);

// Forks a child that takes the three descriptors as its standard input, output and error (-1: /dev/null),
// closes all others, switches to `user` (empty, unknown or with uid 0: no switch) and, if so asked, to the
// user's home directory, sets the environment entries on top of the inherited ones and runs `path`, which is
// searched along the child's PATH when it has no slash. `arguments` end with a null pointer.
//
// Returns the child's process id; the caller waits for it and still owns the descriptors. Throws SystemError
// "forkExecvPipes: fork() failed". Whatever fails in the child is written to the child's standard error and
// ends it with status 1; a program that cannot be run is reported on its standard output as well.
pid_t forkExecvPipes(int input, int output, int error, const std::string& path,
                     const std::vector<char*>& arguments, const std::string& user, bool changeToHome,
                     const Environment& environment);

} // namespace quelm
