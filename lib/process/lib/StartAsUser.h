// Starts a child for callers that catch exceptions: as another user and with variables of its own, where
// wanted. PlainChild.h has the C-style start.
#pragma once

#include <map>
#include <optional>
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
// ends it with status 1, also when a descriptor was given twice, which dup2Custom refuses; a program that
// cannot be run is reported on its standard output as well.
pid_t forkExecvPipes(int input, int output, int error, const std::string& path,
                     const std::vector<char*>& arguments, const std::string& user, bool changeToHome,
                     const Environment& environment);

struct User {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string home;
};

// The user of the password database. Nothing, after the line "Unable to getpwnam for user NAME" on standard
// error, for a user that does not exist or cannot be looked up; errno is 0 for one that does not exist.
std::optional<User> findUser(const std::string& name);

// Bits of p_setuid's `flags`.
inline constexpr unsigned setuidChdirHome = 1;  // change to the user's home directory
inline constexpr unsigned setuidAllowRoot = 2;  // uid 0 is permitted
inline constexpr unsigned setuidChrootHome = 4; // change the root to the user's home directory

// Makes the process run as `user` with that user's groups. Returns 0; every failure ends the process with
// status 1 after a message of fatal_message, so call it in a forked child. A user that does not exist prints
// the line of findUser first.
int p_setuid(const char* user, unsigned flags);

} // namespace quelm
