// What a piece of a test prints, here or in a forked child, and how the child ended.
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace quelm::test {

// A file in memory in place of descriptor 1 or 2, until the object ends.
class CapturedStream {
public:
    explicit CapturedStream(int stream);
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;
    ~CapturedStream();

    // All that was printed so far, by children too.
    std::string text() const;

private:
    int stream_;
    int saved_;
    int file_;
};

class CapturedStreams {
public:
    std::string output() const { return output_.text(); }
    std::string error() const { return error_.text(); }

private:
    CapturedStream output_{1};
    CapturedStream error_{2};
};

struct ChildOutcome {
    int waitStatus;
    std::string output;
    std::string error;

    // The exit status, or -1 when a signal ended the child.
    int exitStatus() const;
};

// Runs the body in a forked child. Its result is the exit status, 0 when it has none, and 99 when it throws;
// it may also end the process itself. The parent's destructors are not run.
ChildOutcome forkBody(const std::function<int()>& body);

template <class Body>
ChildOutcome inChild(const Body& body) {
    return forkBody([&body]() -> int {
        if constexpr (std::is_void_v<decltype(body())>) {
            body();
            return 0;
        } else {
            return body();
        }
    });
}

// Whether the body returns true in a forked child.
testing::AssertionResult holdsInChild(const std::function<bool()>& body);

// A stream buffer that knows how much of its text was flushed.
class FlushedText : public std::stringbuf {
public:
    std::string flushed;

protected:
    int sync() override {
        flushed = str();
        return 0;
    }
};

} // namespace quelm::test
