#include "base/FatalMessage.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "base/ByteBuffer.h"
#include "base/ProcessState.h"

namespace quelm {

namespace {

constexpr std::size_t firstSize = 4096;

std::string programName;
bool forkedChild = false;

// Appends to a buffer that has room for at least a NUL byte, growing it to the exact size when needed. When
// memory runs out the text is cut.
void appendFormatted(ByteBuffer& text, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(text.end(), text.room(), format, arguments);
    if (length >= 0) {
        const std::size_t wanted = static_cast<std::size_t>(length) + 1;
        if (wanted > text.room() && text.reserve(text.size() + wanted)) {
            std::vsnprintf(text.end(), text.room(), format, again);
        }
    }
    va_end(again);
    text.extend(std::strlen(text.end()));
}

[[gnu::format(printf, 2, 3)]] void append(ByteBuffer& text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    appendFormatted(text, format, arguments);
    va_end(arguments);
}

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
    ByteBuffer text;
    if (text.reserve(firstSize)) {
        va_list arguments;
        va_start(arguments, format);
        appendFormatted(text, format, arguments);
        va_end(arguments);
        if (systemError != 0) {
            append(text, "\nSystem error %d: %s", systemError, std::strerror(systemError));
        }
        printOnBoth(text.data());
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

void reportLine(const char* format, ...) {
    const KeepErrno keep;
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    const std::size_t length = std::strlen(format);
    if (length == 0 || format[length - 1] != '\n') {
        std::fputc('\n', stderr);
    }
    std::fflush(stderr);
}

} // namespace quelm
