// Groups and users of the system's databases, for the panel's other programs. A failed look-up prints one
// line on standard error; its REASON is the system's text, or "Group not found" or "User not found".
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace quelm {

struct Group {
    std::string name;
    gid_t gid = 0;
};

// All return nothing for a group or user that does not exist or cannot be looked up; errno is 0 for one that
// does not exist.

// Prints "getgrnam(NAME): REASON".
std::optional<Group> findGroupByName(const std::string& name);

// Prints "getgrgid(NUMBER): REASON".
std::optional<Group> findGroupByGid(gid_t gid);

// Prints "Unable to find uid for user NAME: REASON".
std::optional<uid_t> uidByName(const std::string& name);

// Prints "REASON" alone.
std::optional<std::string> userNameByUid(uid_t uid);

} // namespace quelm
