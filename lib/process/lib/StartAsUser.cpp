// The order of the steps in the child matters: descriptors first, so that the parent can read every later
// failure; the user before the environment, which may set another PATH; exec last.
#include "lib/process/lib/StartAsUser.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/ChildSetup.h"
#include "lib/process/lib/Exceptions.h"

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

// getpwnam does not set errno for a user that does not exist, so it is cleared first.
std::optional<User> findUser(const std::string& name) {
    errno = 0;
    const passwd* found = ::getpwnam(name.c_str());
    if (found == nullptr) {
        reportLine("Unable to getpwnam for user %s", name.c_str());
        return std::nullopt;
    }
    return User{found->pw_name, found->pw_uid, found->pw_gid, found->pw_dir};
}

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

namespace {

void switchUser(const std::string& user, bool changeToHome) {
    if (user.empty()) {
        return;
    }
    const auto found = findUser(user);
    if (!found || found->uid == 0) {
        return;
    }
    if (p_setuid(user.c_str(), changeToHome ? setuidChdirHome : 0) != 0) {
        throwSystemError("forkExecvPipes: p_setuid() to '" + user + "' failed", errno);
    }
}

void setEnvironment(const Environment& environment) {
    for (const auto& [name, value] : environment) {
        if (::setenv(name.c_str(), value.c_str(), 1) != 0) {
            // The spelling is deliberate: log readers match it.
            throwSystemError("forkExecvPipes: setenv() falied", errno);
        }
    }
}

// A failure here cannot be reported.
void writeLine(int descriptor, const char* text) {
    const std::string line = std::string(text) + '\n';
    [[maybe_unused]] const ssize_t written = ::write(descriptor, line.data(), line.size());
}

} // namespace

void dup2Custom(int descriptor, int slot) {
    if (!placeDescriptor(descriptor, slot)) {
        throwSystemError("dup2Custom failed", errno);
    }
}

namespace {

struct ChildStreams {
    int input;
    int output;
    int error;
};

// Until standard error is in its place, failures are reported on a copy of what it will be: placing a
// descriptor closes the original, which may be wanted for another slot too.
int copyForComplaints(int error) {
    const int future = error != -1 ? error : STDERR_FILENO;
    const int copy = ::fcntl(future, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    return copy != -1 ? copy : future;
}

[[noreturn]] void runChild(const ChildStreams& streams, const std::string& path,
                           const std::vector<char*>& arguments, const std::string& user, bool changeToHome,
                           const Environment& environment) {
    int complaints = copyForComplaints(streams.error);
    try {
        enterChild();
        dup2Custom(streams.input, STDIN_FILENO);
        dup2Custom(streams.output, STDOUT_FILENO);
        dup2Custom(streams.error, STDERR_FILENO);
        complaints = STDERR_FILENO;
        quelm::closefrom(STDERR_FILENO + 1);
        switchUser(user, changeToHome);
        setEnvironment(environment);
        ::execvp(path.c_str(), arguments.data());
        fatal_message(1, 0, "forkExecvPipes: execv() failed: %s\n", std::strerror(errno));
    } catch (const std::exception& failure) {
        writeLine(complaints, failure.what());
    } catch (...) { // LCOV_EXCL_LINE nothing above throws anything else
        writeLine(complaints, "forkExecvPipes: unknown exception"); // LCOV_EXCL_LINE as above
    }
    leaveChild(1);
}

} // namespace

pid_t forkExecvPipes(int input, int output, int error, const std::string& path,
                     const std::vector<char*>& arguments, const std::string& user, bool changeToHome,
                     const Environment& environment) {
    prepareFork();
    const pid_t child = ::fork();
    if (child == -1) {
        throwSystemError("forkExecvPipes: fork() failed", errno);
    }
    if (child != 0) {
        return child;
    }
    runChild({input, output, error}, path, arguments, user, changeToHome, environment);
}

} // namespace quelm
