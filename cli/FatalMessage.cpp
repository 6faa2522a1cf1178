#include "cli/FatalMessage.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

namespace quelm {

namespace {

constexpr std::size_t firstSize = 4096;

std::string programName;
bool forkedChild = false;

// A printf buffer on the C heap: this code also reports that memory ran out, so nothing here may throw.
class Text {
public:
    bool reserve(std::size_t size) {
        if (size <= capacity_) {
            return true;
        }
        void* grown = std::realloc(block_.get(), size);
        if (grown == nullptr) {
            return false;
        }
        (void)block_.release();
        block_.reset(static_cast<char*>(grown));
        capacity_ = size;
        return true;
    }

    // Formats behind what is there, in a buffer grown to the exact size when needed; a text that cannot be
    // given room is cut.
    void vappend(const char* format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        const int length = std::vsnprintf(block_.get() + length_, capacity_ - length_, format, arguments);
        if (length >= 0) {
            const std::size_t wanted = length_ + static_cast<std::size_t>(length) + 1;
            if (wanted > capacity_ && reserve(wanted)) {
                std::vsnprintf(block_.get() + length_, capacity_ - length_, format, again);
            }
        }
        va_end(again);
        length_ += std::strlen(block_.get() + length_);
    }

    [[gnu::format(printf, 2, 3)]] void append(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        vappend(format, arguments);
        va_end(arguments);
    }

    const char* c_str() const { return block_.get(); }

private:
    struct Free {
        void operator()(char* block) const { std::free(block); }
    };
    std::unique_ptr<char, Free> block_;
    std::size_t capacity_ = 0;
    std::size_t length_ = 0;
};

void printOn(std::FILE* stream, const char* message) {
    if (!programName.empty()) {
        std::fprintf(stream, "%s: ", programName.c_str());
    }
    std::fputs(message, stream);
    const std::size_t length = std::strlen(message);
    if (length == 0 || message[length - 1] != '\n') {
        std::fputc('\n', stream);
    }
    std::fflush(stream);
}

void printOnBoth(const char* message) {
    printOn(stderr, message);
    printOn(stdout, message);
}

void endProcess(int status) {
    if (status == 0) {
        return;
    }
    if (forkedChild) {
        ::_exit(status);
    }
    std::exit(status);
}

} // namespace

void fatal_message(int status, int /*reserved*/, const char* format, ...) {
    const int systemError = errno;
    Text text;
    if (text.reserve(firstSize)) {
        va_list arguments;
        va_start(arguments, format);
        text.vappend(format, arguments);
        va_end(arguments);
        if (systemError != 0) {
            text.append("\nSystem error %d: %s", systemError, std::strerror(systemError));
        }
        printOnBoth(text.c_str());
    } else {
        printOnBoth("Can't allocate memory for error message");
    }
    errno = systemError;
    endProcess(status);
}

void setProgramPath(const char* path) {
    const char* slash = path != nullptr ? std::strrchr(path, '/') : nullptr;
    programName = slash != nullptr ? slash + 1 : (path != nullptr ? path : "");
}

void markForkedChild() {
    forkedChild = true;
}

} // namespace quelm
