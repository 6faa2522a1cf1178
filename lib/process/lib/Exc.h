// The tagged exceptions of the process layer: a message under a tag, the place of the throw and its stack.
// There is exactly one std::exception and one Traceback in each of them, so that both can be caught and cast
// to without ambiguity.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "cli/Traceback.h"

namespace quelm {

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
