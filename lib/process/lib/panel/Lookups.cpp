// The look-ups do not set errno for an entry that does not exist, so it is cleared first.
#include "lib/process/lib/panel/Lookups.h"

#include <cerrno>
#include <cstring>

#include <grp.h>
#include <pwd.h>

#include "base/FatalMessage.h"

namespace quelm {

namespace {

const char* reasonOr(const char* notFound) {
    return errno != 0 ? std::strerror(errno) : notFound;
}

std::optional<Group> copyOf(const group* found) {
    return found != nullptr ? std::optional(Group{found->gr_name, found->gr_gid}) : std::nullopt;
}

} // namespace

std::optional<Group> findGroupByName(const std::string& name) {
    errno = 0;
    auto found = copyOf(::getgrnam(name.c_str()));
    if (!found) {
        reportLine("getgrnam(%s): %s", name.c_str(), reasonOr("Group not found"));
    }
    return found;
}

std::optional<Group> findGroupByGid(gid_t gid) {
    errno = 0;
    auto found = copyOf(::getgrgid(gid));
    if (!found) {
        reportLine("getgrgid(%u): %s", gid, reasonOr("Group not found"));
    }
    return found;
}

std::optional<uid_t> uidByName(const std::string& name) {
    errno = 0;
    const passwd* const found = ::getpwnam(name.c_str());
    if (found == nullptr) {
        reportLine("Unable to find uid for user %s: %s", name.c_str(), reasonOr("User not found"));
        return std::nullopt;
    }
    return found->pw_uid;
}

std::optional<std::string> userNameByUid(uid_t uid) {
    errno = 0;
    const passwd* const found = ::getpwuid(uid);
    if (found == nullptr) {
        reportLine("%s", reasonOr("User not found"));
        return std::nullopt;
    }
    return found->pw_name;
}

} // namespace quelm
