#include "base/Log.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <strings.h>
#include <syslog.h>
#include <unistd.h>

#include "base/ProcessState.h"

namespace quelm {

namespace {

using Name = std::array<char, 64>;

void systemFront(int priority, const char* format, va_list arguments);
void systemWriter(int priority, const char* message);

// openlog keeps the pointer that it is given, so the identity lives here and not with the caller.
struct LogState {
    Name target{};
    unsigned threshold = LOG_DEBUG;
    int facility = LOG_USER;
    int options = 0;
    Name identity{};
    Name traceId{};
    void (*writer)(int priority, const char* message) = systemWriter;
    void (*front)(int priority, const char* format, va_list arguments) = systemFront;
};

LogState state;

void copyCut(Name& destination, const char* source) {
    const std::size_t length = std::min(std::strlen(source), destination.size() - 1);
    std::memcpy(destination.data(), source, length);
    destination[length] = '\0';
}

void systemWriter(int priority, const char* message) {
    ::syslog(priority, "%s", message);
}

void systemFront(int priority, const char* format, va_list arguments) {
    if ((state.options & logWithTraceId) == 0 || state.traceId[0] == '\0') {
        ::vsyslog(priority, format, arguments);
        return;
    }
    std::array<char, 8192> text;
    const int prefix = std::snprintf(text.data(), text.size(), "%s: ", state.traceId.data());
    const auto used = static_cast<std::size_t>(prefix);
    std::vsnprintf(text.data() + used, text.size() - used, format, arguments);
    state.writer(priority, text.data());
}

bool targetIs(const char* name) {
    return ::strcasecmp(state.target.data(), name) == 0;
}

void writeLine(std::FILE* stream, const char* message) {
    std::fputs(message, stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}

void consoleWriter(int priority, const char* message) {
    if (static_cast<unsigned>(priority & LOG_PRIMASK) > state.threshold) {
        return;
    }
    const bool both = targetIs("console");
    if (!both && !targetIs("stderr")) {
        return;
    }
    writeLine(stderr, message);
    if (both) {
        writeLine(stdout, message);
    }
}

void consoleFront(int priority, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) {
        return;
    }
    std::string message(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(message.data(), message.size() + 1, format, arguments);
    state.writer(priority, message.c_str());
}

void chooseTraceId() {
    const char* inherited = std::getenv("QUELM_LOG_TRACE_ID");
    if (inherited != nullptr && *inherited != '\0') {
        copyCut(state.traceId, inherited);
        return;
    }
    const int initial = std::toupper(static_cast<unsigned char>(program_invocation_short_name[0]));
    std::snprintf(state.traceId.data(), state.traceId.size(), "%c%ld", initial,
                  static_cast<long>(::getpid()));
    ::setenv("QUELM_LOG_TRACE_ID", state.traceId.data(), 1);
}

void openSystemLog(int options, const char* ident) {
    ::closelog();
    state.options = options | LOG_PID;
    copyCut(state.identity, ident != nullptr ? ident : program_invocation_short_name);
    if ((state.options & logWithTraceId) != 0) {
        chooseTraceId();
    }
    ::openlog(state.identity.data(), state.options & (LOG_PID | LOG_CONS | LOG_PERROR), state.facility);
    state.writer = systemWriter;
    state.front = systemFront;
}

// QUELM_LOG_LEVEL is used only when it is one digit 0..7, and can only raise the threshold.
unsigned chooseThreshold(unsigned level) {
    const unsigned asked = level & LOG_PRIMASK;
    const char* fromEnvironment =
        (level & logLevelFromEnvironment) != 0 ? std::getenv("QUELM_LOG_LEVEL") : nullptr;
    if (fromEnvironment == nullptr || std::strlen(fromEnvironment) != 1 || *fromEnvironment < '0' ||
        *fromEnvironment > '7') {
        return asked;
    }
    return std::max(asked, static_cast<unsigned>(*fromEnvironment - '0'));
}

} // namespace

void log_init(const char* target, unsigned level, int facility, int options, const char* ident) {
    const bool toConsole = target != nullptr;
    copyCut(state.target, toConsole ? target : "");
    state.facility = facility;
    if (toConsole) {
        state.options = options;
        state.writer = consoleWriter;
        state.front = consoleFront;
    } else {
        openSystemLog(options, ident);
    }
    state.threshold = chooseThreshold(level);
    if (!toConsole) {
        ::setlogmask(LOG_UPTO(static_cast<int>(state.threshold)));
    }
}

void log_message(int priority, const char* format, ...) {
    const KeepErrno keep;
    va_list arguments;
    va_start(arguments, format);
    state.front(priority, format, arguments);
    va_end(arguments);
}

} // namespace quelm
