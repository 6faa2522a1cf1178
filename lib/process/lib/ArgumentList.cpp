#include "lib/process/lib/ArgumentList.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli/FatalMessage.h"

namespace quelm {

namespace {

std::size_t countOf(va_list arguments) {
    std::size_t count = 0;
    while (va_arg(arguments, const char*) != nullptr) {
        ++count;
    }
    return count;
}

} // namespace

ArgumentList::ArgumentList(const char* path, va_list arguments) {
    va_list counted;
    va_copy(counted, arguments);
    const std::size_t count = countOf(counted);
    va_end(counted);
    pointers_.reset(static_cast<char**>(std::malloc((count + 2) * sizeof(char*))));
    if (!pointers_) {
        fatal_message(1, 0, "malloc() failed: %s", std::strerror(errno));
        return;
    }
    // exec takes pointers to char for the sake of old programs; it does not write through them.
    pointers_[0] = const_cast<char*>(path);
    for (std::size_t index = 1; index <= count; ++index) {
        pointers_[index] = const_cast<char*>(va_arg(arguments, const char*));
    }
    pointers_[count + 1] = nullptr;
}

} // namespace quelm
