// What the registry's tests share: records, registries and caught warnings.
#pragma once

#include <initializer_list>
#include <iostream>
#include <ostream>
#include <sstream>
#include <string>

#include "registry/HandlerRegistry.h"

namespace quelm {

inline bool operator==(const PhpHandler& a, const PhpHandler& b) {
    return a.id == b.id && a.displayname == b.displayname && a.path == b.path && a.clipath == b.clipath &&
           a.version == b.version && a.phpini == b.phpini && a.service == b.service && a.poold == b.poold &&
           a.type == b.type && a.system == b.system;
}

inline void PrintTo(const PhpHandler& handler, std::ostream* stream) {
    *stream << "{id=" << handler.id << " displayname=" << handler.displayname << " path=" << handler.path
            << " clipath=" << handler.clipath << " version=" << handler.version
            << " phpini=" << handler.phpini << " service=" << handler.service << " poold=" << handler.poold
            << " type=" << static_cast<std::uint32_t>(handler.type) << " system=" << handler.system << "}";
}

namespace test {

inline PhpHandler handlerWithId(const std::string& id) {
    return {id, "d", "p", "c", "v", "i", "", "", PhpHandlerType::cgi, false};
}

inline PhpHandler fpmHandler() {
    return {.id = "php81",
            .displayname = "PHP $version ($version)",
            .path = "/usr/bin/php-cgi8.1",
            .clipath = "/usr/bin/php8.1",
            .version = "8.1.2",
            .phpini = "/etc/php/8.1/fpm/php.ini",
            .service = "php8.1-fpm",
            .poold = "/etc/php/8.1/fpm/pool.d",
            .type = PhpHandlerType::fpm,
            .system = true};
}

inline HandlerRegistry registryOf(std::initializer_list<PhpHandler> handlers) {
    HandlerRegistry registry;
    for (const PhpHandler& handler : handlers) {
        registry.append(handler);
    }
    return registry;
}

inline HandlerRegistry registryWithIds(const std::string& ids) {
    HandlerRegistry registry;
    for (const char id : ids) {
        registry.append(handlerWithId(std::string(1, id)));
    }
    return registry;
}

inline std::string idsOf(const HandlerRegistry& registry) {
    std::string ids;
    for (const PhpHandler& handler : registry) {
        ids += handler.id;
    }
    return ids;
}

// Catches what is written to std::cerr while it lives.
class CaughtErrors {
public:
    CaughtErrors() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
    CaughtErrors(const CaughtErrors&) = delete;
    CaughtErrors& operator=(const CaughtErrors&) = delete;
    ~CaughtErrors() { std::cerr.rdbuf(before_); }

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* before_;
};

} // namespace test

} // namespace quelm
