#include "lib/process/lib/UserLookup.h"

#include <cerrno>
#include <cstring>

#include <pwd.h>

#include "lib/process/lib/ReportLine.h"

namespace quelm {

namespace {

// The database leaves errno alone for a user that does not exist, so it must be 0 beforehand.
const passwd* lookUp(const std::string& name) {
    errno = 0;
    return ::getpwnam(name.c_str());
}

const char* reason() {
    return errno != 0 ? std::strerror(errno) : "User not found";
}

} // namespace

std::optional<User> findUser(const std::string& name) {
    const passwd* found = lookUp(name);
    if (found == nullptr) {
        reportLine("Unable to getpwnam for user %s", name.c_str());
        return std::nullopt;
    }
    return User{found->pw_name, found->pw_uid, found->pw_gid, found->pw_dir};
}

std::optional<uid_t> findUid(const std::string& user) {
    const std::optional<User> found = findUser(user);
    return found ? std::optional<uid_t>(found->uid) : std::nullopt;
}

std::optional<uid_t> uidByName(const std::string& name) {
    const passwd* found = lookUp(name);
    if (found == nullptr) {
        reportLine("Unable to find uid for user %s: %s", name.c_str(), reason());
        return std::nullopt;
    }
    return found->pw_uid;
}

std::optional<std::string> userNameByUid(uid_t uid) {
    errno = 0;
    const passwd* found = ::getpwuid(uid);
    if (found == nullptr) {
        reportLine("%s", reason());
        return std::nullopt;
    }
    return found->pw_name;
}

} // namespace quelm
