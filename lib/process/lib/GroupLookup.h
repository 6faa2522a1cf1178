// Groups of the group database, by name and by number. A failed lookup prints one line on standard error.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace quelm {

struct Group {
    std::string name;
    gid_t gid = 0;
};

// Both return nothing for a group that does not exist or cannot be looked up; errno then tells which: it is 0
// for a group that does not exist. The reason printed is the system's text, or "Group not found".

// Prints "getgrnam(NAME): REASON".
std::optional<Group> findGroupByName(const std::string& name);

// Prints "getgrgid(NUMBER): REASON".
std::optional<Group> findGroupByGid(gid_t gid);

} // namespace quelm
