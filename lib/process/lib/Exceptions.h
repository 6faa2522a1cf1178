// The exceptions of the process layer: failed system calls, and the tagged family of failed commands.
#pragma once

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "base/Traceback.h"

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

// The policy type of this program's exceptions.
struct ExDefault {};

// The root of the family. Virtual in every class below it.
class ExVisitable : public std::exception {};

// The place of a throw. The texts are constants that live as long as the program.
struct ThrowPoint {
    const char* function;
    const char* file;
    int line;
};

class IExTraceable {
public:
    virtual ~IExTraceable() = default;

    virtual const char* function() const noexcept = 0;
    virtual const char* file() const noexcept = 0;
    virtual int line() const noexcept = 0;
};

// Records the place of the throw and, as Traceback, the stack of the constructor's caller.
template <class Policy>
class ExTraceableBase : public virtual ExVisitable, public IExTraceable, public Traceback {
public:
    explicit ExTraceableBase(const ThrowPoint& point) : Traceback(ownFrames), point_(point) {}

    const char* function() const noexcept override { return point_.function; }
    const char* file() const noexcept override { return point_.file; }
    int line() const noexcept override { return point_.line; }

private:
    // The frame of Traceback's constructor tells nothing.
    static constexpr std::uint64_t ownFrames = 1;

    ThrowPoint point_;
};

// Carries a tag name and the message. what() is the message up to its first NUL byte, which the captured
// output of a program may hold; message() is the whole.
template <class Policy>
class ExTaggedIncludableBase : public virtual ExVisitable {
public:
    ExTaggedIncludableBase(std::string tag, std::string message)
        : tag_(std::move(tag)), message_(std::move(message)) {}

    const std::string& tag() const noexcept { return tag_; }
    const std::string& message() const noexcept { return message_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string tag_;
    std::string message_;
};

// One instance per kind of failure, told apart by the address of the kind's tag.
template <auto Tag, class Policy>
class Exc : public ExTraceableBase<Policy>, public ExTaggedIncludableBase<Policy> {
public:
    Exc(std::string tag, std::string message, const ThrowPoint& point)
        : ExTraceableBase<Policy>(point), ExTaggedIncludableBase<Policy>(std::move(tag), std::move(message)) {
    }
};

} // namespace quelm
