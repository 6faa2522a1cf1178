// The argument vector of a variadic call.
#pragma once

#include <cstdarg>
#include <memory>

#include "lib/process/lib/OutputBuffer.h"

namespace quelm {

// `path` as argument 0, then the strings of the list up to its null pointer. The strings are not copied and
// must live as long as the vector is used. When memory runs out, fatal_message says "malloc() failed: REASON"
// and the process ends with status 1.
class ArgumentList {
public:
    ArgumentList(const char* path, va_list arguments);

    char* const* data() const { return pointers_.get(); }

private:
    std::unique_ptr<char*[], FreeBlock> pointers_;
};

} // namespace quelm
