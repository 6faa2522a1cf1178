// Runs a piece of a test in a forked child and tells what it printed and how it ended.
#pragma once

#include <functional>
#include <string>

namespace quelm::test {

struct ChildOutcome {
    int waitStatus;
    std::string output;
    std::string error;

    // The exit status, or -1 when a signal ended the child.
    int exitStatus() const;
};

// Standard output and standard error of the body are collected apart. The body may end the process itself;
// when it returns, the child ends with status 0, and when it throws with 99, without the parent's
// destructors.
ChildOutcome inChild(const std::function<void()>& body);

} // namespace quelm::test
