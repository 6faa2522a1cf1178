// The order is part of the effect: the home directory is entered and becomes the root while that is still
// permitted, and the groups go before the uid that permits setting them.
#include "lib/process/lib/SwitchUser.h"

#include <cerrno>
#include <cstring>
#include <optional>

#include <grp.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/UserLookup.h"

namespace quelm {

namespace {

void moveHome(const User& user, unsigned flags) {
    if ((flags & setuidChdirHome) != 0 && ::chdir(user.home.c_str()) != 0) {
        fatal_message(1, 0, "Cannot chdir to '%s' homedir '%s'", user.name.c_str(), user.home.c_str());
    }
    if ((flags & setuidChrootHome) != 0 && ::chroot(user.home.c_str()) != 0) {
        fatal_message(1, 0, "Cannot chroot to '%s' homedir '%s'", user.name.c_str(), user.home.c_str());
    }
}

void become(const User& user) {
    if (::initgroups(user.name.c_str(), user.gid) != 0) {
        fatal_message(1, 0, "Unable to init new groups for user '%s': %s", user.name.c_str(),
                      std::strerror(errno));
    }
    if (::setgid(user.gid) != 0) {
        fatal_message(1, 0, "Failed to setgid: %d\n", static_cast<int>(user.gid));
    }
    if (::setuid(user.uid) != 0) {
        fatal_message(1, 0, "Failed to setuid: %d\n", static_cast<int>(user.uid));
    }
}

} // namespace

int p_setuid(const char* user, unsigned flags) {
    const std::optional<User> found = findUser(user);
    if (!found) {
        fatal_message(1, 0, "User '%s' not found", user);
        return -1;
    }
    moveHome(*found, flags);
    if (found->uid == 0 && (flags & setuidAllowRoot) == 0) {
        errno = 0; // no system call failed
        fatal_message(1, 0, "Cannot run as forbidden uid: %d\n", static_cast<int>(found->uid));
    }
    become(*found);
    return 0;
}

} // namespace quelm
