#include "registry/RegistryFile.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iostream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "base/File.h"
#include "base/QuelmUtilException.h"
#include "registry/JsonError.h"
#include "registry/PhpHandler.h"
#include "registry/RegistryParser.h"
#include "registry/RegistryWriter.h"

namespace quelm {

namespace {

RegistryParser makeParser(ByteBuffer& text) {
    try {
        return {text.data(), text.size()};
    } catch (const std::bad_alloc&) {
        throw std::runtime_error("can not create php_versions_info object");
    }
}

HandlerViews parse(ByteBuffer& text) {
    RegistryParser parser = makeParser(text);
    // The report includes errno, so a value left by an earlier step must not be seen.
    errno = 0;
    if (!parser.parse()) {
        throw std::runtime_error("can not parse php_versions_info object : " +
                                 formatJsonError(parser.error()));
    }
    return std::move(parser.handlers());
}

// Decodes in place: a decoded name is never longer.
std::string_view decodeName(std::string_view name, ByteBuffer& text) {
    return unescapeDisplayName({text.data() + (name.data() - text.data()), name.size()});
}

// For each position, whether an earlier handler has the same id. Sorted by hash first, because the ids are
// scattered over the whole text.
std::vector<bool> findRepeatedIds(const HandlerViews& handlers) {
    using Entry = std::tuple<std::size_t, std::string_view, std::size_t>; // hash, id, position
    std::vector<Entry> entries;
    entries.reserve(handlers.size());
    for (const HandlerView& handler : handlers) {
        entries.emplace_back(std::hash<std::string_view>{}(handler.id), handler.id, entries.size());
    }
    std::sort(entries.begin(), entries.end());
    std::vector<bool> repeated(handlers.size());
    for (std::size_t next = 1; next < entries.size(); ++next) {
        const auto& [hash, id, position] = entries[next];
        repeated[position] = hash == std::get<0>(entries[next - 1]) && id == std::get<1>(entries[next - 1]);
    }
    return repeated;
}

// Decodes the names, drops the handlers that repeat an id and checks the types of the others. All of it is
// done for one handler before the next, because the order of the messages is part of the interface.
void validate(HandlerViews& handlers, ByteBuffer& text) {
    const std::vector<bool> repeated = findRepeatedIds(handlers);
    auto isRepeated = repeated.begin();
    for (HandlerView& handler : handlers) {
        handler.displayname = decodeName(handler.displayname, text);
        if (*isRepeated++) {
            std::cerr << "[Warning] conflicting handler with id `" + std::string(handler.id) +
                             "' found. Ignoring\n";
        } else {
            (void)parseHandlerType(handler.type);
        }
    }
    isRepeated = repeated.begin();
    std::erase_if(handlers, [&](const HandlerView& /*handler*/) { return *isRepeated++; });
}

} // namespace

RegistrySnapshot::RegistrySnapshot(const std::string& path) : text_(readTextFile(path)) {
    if (text_.size() == 0) {
        return;
    }
    try {
        handlers_ = parse(text_);
        validate(handlers_, text_);
    } catch (const std::runtime_error& failure) {
        throw QuelmUtilException("Error reading " + path + ": " + failure.what());
    }
}

void load(HandlerRegistry& registry, const std::string& path) {
    registry.clear();
    RegistrySnapshot snapshot(path);
    HandlerViews& handlers = snapshot.handlers();
    HandlerRegistry loaded;
    loaded.reserve(handlers.size());
    // Each view goes when its record is made, which keeps the peak below three times the file.
    for (; !handlers.empty(); handlers.pop_front()) {
        loaded.append(handlers.front().record());
    }
    registry = std::move(loaded);
}

void save(const HandlerRegistry& registry, const std::string& path) {
    constexpr std::size_t usualRecord = 512;
    std::string room;
    room.reserve(registry.size() * usualRecord);
    std::ostringstream document(std::move(room));
    writeRegistryJson(registry, document, true);
    writeTextFile(path, document.view());
}

} // namespace quelm
