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

std::string readableFrame(const std::string& symbolLine) {
    const auto open = symbolLine.find('(');
    const auto plus = open == std::string::npos ? open : symbolLine.find('+', open);
    if (plus == std::string::npos) {
        return symbolLine;
    }
    const auto name = demangle(symbolLine.substr(open + 1, plus - open - 1).c_str());
    return name ? symbolLine.substr(0, open + 1) + *name + symbolLine.substr(plus) : symbolLine;
}

} // namespace quelm
