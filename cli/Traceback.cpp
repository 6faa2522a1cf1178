#include "cli/Traceback.h"

#include <algorithm>
#include <cstdlib>

#include <execinfo.h>

#include "cli/Demangle.h"

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

} // namespace quelm
