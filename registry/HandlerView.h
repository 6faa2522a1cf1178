// A handler whose texts lie elsewhere: what the listings and the writer look at, be it a record of a registry
// or a handler in the text of the registry file.
#pragma once

#include <string>
#include <string_view>

#include "registry/PhpHandler.h"

namespace quelm {

// Valid while the texts it was made from are. A text that is left out is written as null, not as an empty
// one.
struct HandlerView {
    std::string_view id;
    std::string_view displayname;
    std::string_view path;
    std::string_view clipath;
    std::string_view version;
    std::string_view phpini;
    std::string_view service;
    std::string_view poold;
    PhpHandlerType type;
    bool system;
};

// Of anything that names its texts as PhpHandler does.
template <class Handler>
HandlerView viewOf(const Handler& handler, std::string_view displayname) {
    return {.id = handler.id,
            .displayname = displayname,
            .path = handler.path,
            .clipath = handler.clipath,
            .version = handler.version,
            .phpini = handler.phpini,
            .service = handler.service,
            .poold = handler.poold,
            .type = handler.type,
            .system = handler.system};
}

inline HandlerView viewOf(const PhpHandler& handler) {
    return viewOf(handler, handler.displayname);
}

inline PhpHandler copyOf(const HandlerView& handler) {
    return {.id = std::string(handler.id),
            .displayname = std::string(handler.displayname),
            .path = std::string(handler.path),
            .clipath = std::string(handler.clipath),
            .version = std::string(handler.version),
            .phpini = std::string(handler.phpini),
            .service = std::string(handler.service),
            .poold = std::string(handler.poold),
            .type = handler.type,
            .system = handler.system};
}

} // namespace quelm
