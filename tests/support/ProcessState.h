// What a test leaves behind: open descriptors and children.
#pragma once

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include <sys/wait.h>

namespace quelm::test {

// The numbers of the open descriptors.
inline std::set<std::string> openDescriptors() {
    std::set<std::string> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        numbers.insert(entry.path().filename().string());
    }
    return numbers;
}

// Whether there is a child that nobody has waited for, running or not.
inline bool hasChildren() {
    return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

} // namespace quelm::test
