#include "lib/process/lib/ReportLine.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace quelm {

void reportLine(const char* format, ...) {
    const int kept = errno;
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    const std::size_t length = std::strlen(format);
    if (length == 0 || format[length - 1] != '\n') {
        std::fputc('\n', stderr);
    }
    std::fflush(stderr);
    errno = kept;
}

} // namespace quelm
