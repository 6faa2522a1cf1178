#include "registry/RegistrySnapshot.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string_view>

#include "cli/QuelmUtilException.h"
#include "registry/DisplayName.h"
#include "registry/IdIndex.h"
#include "registry/JsonError.h"
#include "registry/RegistryDocument.h"

namespace quelm {

namespace {

RegistryDocument makeDocument(const FileText& text) {
    try {
        return {text.bytes.get(), text.size};
    } catch (const std::bad_alloc&) {
        throw std::runtime_error("can not create php_versions_info object");
    }
}

HandlerArray parse(const FileText& text) {
    RegistryDocument document = makeDocument(text);
    // The report names the system's error, so one that an earlier step left must not be seen.
    errno = 0;
    if (!document.parse()) {
        throw std::runtime_error("can not parse php_versions_info object : " +
                                 formatJsonError(document.error()));
    }
    return document.takeHandlers();
}

void warnOfConflict(const char* id) {
    std::cerr << std::string("[Warning] conflicting handler with id `") + id + "' found. Ignoring\n";
}

// The name of a handler lies in the text: it is required. Decoded it is no longer, so it takes the same
// place.
void decodeName(HandlerObject& handler, char* text) {
    char* const name = text + (handler.displayname - text);
    handler.nameSize = unescapeDisplayName({name, std::strlen(name)}).size();
}

// The first handler with an id stays, and the type of a later one is not even looked at. The display name is:
// the order of the three failures is kept for callers that compare messages.
void accept(HandlerArray& handlers, char* text) {
    IdIndex ids;
    ids.reset(handlers.size());
    const auto idAt = [&](std::size_t position) { return std::string_view(handlers[position].id); };
    std::size_t accepted = 0;
    for (HandlerObject& handler : handlers) {
        decodeName(handler, text);
        if (!ids.add(handler.id, accepted, idAt)) {
            warnOfConflict(handler.id);
            continue;
        }
        handler.type = parseHandlerType(handler.typeName);
        handlers.begin()[accepted++] = handler;
    }
    handlers.shrink(accepted);
}

} // namespace

RegistrySnapshot::RegistrySnapshot(const std::string& path) : text_(readTextFile(path)) {
    if (text_.size == 0) {
        return;
    }
    try {
        handlers_ = parse(text_);
        accept(handlers_, text_.bytes.get());
    } catch (const std::runtime_error& failure) {
        throw QuelmUtilException("Error reading " + path + ": " + failure.what());
    }
}

HandlerView viewOf(const HandlerObject& handler) {
    return viewOf(handler, {handler.displayname, handler.nameSize});
}

} // namespace quelm
