// In the child the order of the steps counts: the descriptors first, so that every later failure can be read
// by the parent; the user before the environment, which may hold a PATH of its own; exec last.
#include "lib/process/lib/ForkExecvPipes.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ChildSetup.h"
#include "lib/process/lib/CloseFrom.h"
#include "lib/process/lib/SwitchUser.h"
#include "lib/process/lib/SystemError.h"
#include "lib/process/lib/UserLookup.h"

namespace quelm {

namespace {

void switchUser(const std::string& user, bool changeToHome) {
    if (user.empty()) {
        return;
    }
    const auto uid = findUid(user);
    if (!uid || *uid == 0) {
        return;
    }
    if (p_setuid(user.c_str(), changeToHome ? setuidChdirHome : 0) != 0) {
        throwSystemError("forkExecvPipes: p_setuid() to '" + user + "' failed", errno);
    }
}

void setEnvironment(const Environment& environment) {
    for (const auto& [name, value] : environment) {
        if (::setenv(name.c_str(), value.c_str(), 1) != 0) {
            // Spelt like this on purpose: log readers match it.
            throwSystemError("forkExecvPipes: setenv() falied", errno);
        }
    }
}

// Nobody is left to tell when this fails.
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
    // Where complaints go: the standard error of the program to be, already before it is in its place.
    int complaints = error != -1 ? error : STDERR_FILENO;
    try {
        enterChild();
        dup2Custom(input, STDIN_FILENO);
        dup2Custom(output, STDOUT_FILENO);
        dup2Custom(error, STDERR_FILENO);
        complaints = STDERR_FILENO;
        quelm::closefrom(STDERR_FILENO + 1);
        switchUser(user, changeToHome);
        setEnvironment(environment);
        ::execvp(path.c_str(), arguments.data());
        fatal_message(1, 0, "forkExecvPipes: execv() failed: %s\n", std::strerror(errno));
    } catch (const std::exception& failure) {
        writeLine(complaints, failure.what());
    } catch (...) {
        writeLine(complaints, "forkExecvPipes: unknown exception");
    }
    leaveChild(1);
}

} // namespace quelm
