// Users of the password database, by name and by number. A failed lookup prints one line on standard error.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace quelm {

struct User {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string home;
};

// Every lookup returns nothing for a user that does not exist or cannot be looked up; errno then tells which:
// it is 0 for a user that does not exist.

// Prints "Unable to getpwnam for user NAME".
std::optional<User> findUser(const std::string& name);
std::optional<uid_t> findUid(const std::string& user);

// Prints "Unable to find uid for user NAME: REASON"; the reason is the system's text, or "User not found".
std::optional<uid_t> uidByName(const std::string& name);

// Prints the reason alone.
std::optional<std::string> userNameByUid(uid_t uid);

} // namespace quelm
