#include "cli/Demangle.h"

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

namespace quelm {

std::optional<std::string> demangle(const char* mangled) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    if (status != 0 || text == nullptr) {
        return std::nullopt;
    }
    return std::string(text.get());
}

std::string readableTypeName(const char* mangled) {
    const char* name = *mangled == '*' ? mangled + 1 : mangled;
    return demangle(name).value_or(name);
}

} // namespace quelm
