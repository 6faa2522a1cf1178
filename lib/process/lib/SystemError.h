// A failed system call as an exception.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace quelm {

// what() reads "MESSAGE: TEXT OF THE ERROR NUMBER".
class SystemError : public std::runtime_error {
public:
    // An `error` of 0 means the current errno.
    SystemError(const std::string& message, int error);

    // The message alone; valid as long as the exception.
    std::string_view message() const noexcept { return {what(), messageLength_}; }
    // The error number.
    int code() const noexcept { return code_; }

private:
    // An error number that is already chosen: errno is read once, before the text is built.
    struct Number {
        int value;
    };
    SystemError(const std::string& message, Number error);

    std::size_t messageLength_;
    int code_;
};

// The errors that callers tell apart by type: EPERM, ENOENT, EINTR, ECHILD and EAGAIN.
template <int N>
class ExSystemError : public SystemError {
public:
    explicit ExSystemError(const std::string& message) : SystemError(message, N) {}
};

// Throws the ExSystemError of `error` where there is one, else SystemError. The current errno replaces an
// `error` of 0 before the type is chosen.
[[noreturn]] void throwSystemError(const std::string& message, int error);

} // namespace quelm
