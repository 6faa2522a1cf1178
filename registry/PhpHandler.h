// One registered PHP interpreter: the record that the registry, the listings, the commands and the hook
// scripts share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quelm {

// How the web server runs the interpreter.
enum class PhpHandlerType : std::uint32_t { module, cgi, fastcgi, fpm };

struct PhpHandler {
    std::string id;          // unique in the registry, compared byte by byte
    std::string displayname; // may contain the placeholder "$version"
    std::string path;        // php-cgi
    std::string clipath;     // php-cli; may be empty
    std::string version;
    std::string phpini;
    std::string service; // of type fpm only; may be empty
    std::string poold;   // of type fpm only; may be empty
    PhpHandlerType type = PhpHandlerType::module;
    bool system = false; // described by an installed package, not registered by hand
};

// The type for exactly "module", "cgi", "fastcgi" or "fpm". Throws QuelmUtilException for any other text.
PhpHandlerType parseHandlerType(std::string_view text);

// The word for the type. Throws std::runtime_error when the value is none of the four: no input leads there.
std::string_view handlerTypeName(PhpHandlerType type);

// The word for the handler's type. Throws as handlerTypeName does.
std::string formatHandlerType(const PhpHandler& handler);

// True for the types that are older than FPM: "module", "cgi" and "fastcgi".
bool isClassicTypeName(std::string_view text);

} // namespace quelm
