#include "base/Traceback.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <cxxabi.h>
#include <execinfo.h>

namespace quelm {

Traceback::Traceback(std::uint64_t skipFrames) : addresses{} {
    const int captured = ::backtrace(addresses.data(), static_cast<int>(addresses.size()));
    count = static_cast<std::uint64_t>(std::max(captured, 0));
    skip = std::min(skipFrames, count);
}

Traceback::Traceback(const Traceback& other)
    : count(other.count), skip(other.skip), addresses(other.addresses) {}

Traceback& Traceback::operator=(const Traceback& other) {
    if (this != &other) {
        std::free(static_cast<void*>(symbols));
        symbols = nullptr;
        count = other.count;
        skip = other.skip;
        addresses = other.addresses;
    }
    return *this;
}

Traceback::~Traceback() {
    std::free(static_cast<void*>(symbols));
}

void Traceback::print(std::ostream& stream) const {
    if (resolveSymbols() && count > skip) {
        printSymbols(stream);
    } else {
        printAddresses(stream);
    }
}

bool Traceback::resolveSymbols() const {
    if (symbols == nullptr) {
        symbols = ::backtrace_symbols(addresses.data(), static_cast<int>(count));
    }
    return symbols != nullptr;
}

void Traceback::printSymbols(std::ostream& stream) const {
    stream << "Traceback:" << std::endl;
    for (std::uint64_t frame = skip; frame < count; ++frame) {
        stream << '\t' << readableFrame(symbols[frame]) << std::endl;
    }
}

// With no frame to show the header still stands alone; readers of the trace rely on one header being there.
void Traceback::printAddresses(std::ostream& stream) const {
    stream << "Traceback addresses:" << std::endl;
    for (std::uint64_t frame = skip; frame < count; ++frame) {
        stream << '\t' << addresses[frame] << std::endl;
    }
}

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
