#include "registry/PhpHandler.h"

#include <array>
#include <stdexcept>

#include "cli/QuelmUtilException.h"

namespace quelm {

namespace {

// In the order of PhpHandlerType.
constexpr std::array<std::string_view, 4> typeNames{"module", "cgi", "fastcgi", "fpm"};

// The blank before the colon is deliberate: the panel compares this text.
constexpr const char* unknownType = "Unknown php handler type : ";

} // namespace

PhpHandlerType parseHandlerType(std::string_view text) {
    for (std::uint32_t value = 0; value < typeNames.size(); ++value) {
        if (typeNames[value] == text) {
            return static_cast<PhpHandlerType>(value);
        }
    }
    throw QuelmUtilException(unknownType + std::string(text));
}

std::string_view handlerTypeName(PhpHandlerType type) {
    const auto value = static_cast<std::uint32_t>(type);
    if (value >= typeNames.size()) {
        throw std::runtime_error(unknownType + std::to_string(value));
    }
    return typeNames[value];
}

std::string formatHandlerType(const PhpHandler& handler) {
    return std::string(handlerTypeName(handler.type));
}

bool isClassicTypeName(std::string_view text) {
    return text == "module" || text == "cgi" || text == "fastcgi";
}

} // namespace quelm
