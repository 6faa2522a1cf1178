#include "registry/RegistryWriter.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

#include "registry/DisplayName.h"
#include "registry/HandlerView.h"
#include "registry/JsonString.h"

namespace quelm {

namespace {

// A document is given away whenever so much of it is there.
constexpr std::size_t longestPiece = 65536;

// Whatever its texts, a handler takes no more: nine of them, and what stands around them and ends the
// document.
constexpr std::size_t handlerRoom = 9 * jsonStringRoom + 256;

// Few handlers take more.
constexpr std::size_t usualHandler = 512;

char* writeMember(char* output, std::string_view prefix, std::string_view value) {
    return writeJsonString(writeText(output, prefix), value);
}

char* writeHandler(char* output, const HandlerView& handler, std::string_view displayname) {
    output = writeText(output, "\n{\n");
    output = writeMember(output, "\t\"id\":", handler.id);
    output = writeMember(output, ",\n\t\"path\":", handler.path);
    output = writeMember(output, ",\n\t\"clipath\":", handler.clipath);
    output = writeMember(output, ",\n\t\"phpini\":", handler.phpini);
    output = writeMember(output, ",\n\t\"version\":", handler.version);
    output = writeMember(output, ",\n\t\"displayname\":", displayname);
    output = writeMember(output, ",\n\t\"type\":", handlerTypeName(handler.type));
    output = writeText(output, handler.system ? ",\n\t\"system\":true" : ",\n\t\"system\":false");
    if (handler.type == PhpHandlerType::fpm) {
        output = writeMember(output, ",\n\t\"service\":", handler.service);
        output = writeMember(output, ",\n\t\"poold\":", handler.poold);
    }
    return writeText(output, "\n}");
}

// Gives the document to `take` in pieces, a short one in one piece when it is not longer than expected: most
// registries are short, and memory that is not asked for makes a start quicker. `nameOf` tells how the
// display name is written.
template <class Handlers, class NameOf, class Take>
void writeDocument(const Handlers& handlers, std::size_t expectedSize, NameOf nameOf, Take take) {
    const std::size_t pieceSize = std::min(expectedSize, longestPiece);
    const auto piece = std::make_unique_for_overwrite<char[]>(pieceSize + handlerRoom);
    char* const full = piece.get() + pieceSize;
    char* end = writeText(piece.get(), "{\"php\":[");
    const auto flush = [&] {
        take(std::string_view(piece.get(), end));
        end = piece.get();
    };
    bool first = true;
    for (const auto& handler : handlers) {
        if (!first) {
            *end++ = ',';
        }
        first = false;
        end = writeHandler(end, viewOf(handler), nameOf(handler));
        if (end >= full) {
            flush();
        }
    }
    end = writeText(end, "\n]}\n");
    flush();
}

std::size_t expectedSize(const HandlerRegistry& registry) {
    return registry.size() * usualHandler;
}

auto writerTo(std::ostream& stream) {
    return [&stream](std::string_view piece) {
        stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    };
}

} // namespace

std::string registryJson(const HandlerRegistry& registry) {
    std::string document;
    document.reserve(expectedSize(registry));
    writeDocument(registry, expectedSize(registry), escapedDisplayName,
                  [&](std::string_view piece) { document += piece; });
    return document;
}

void writeRegistryJson(const HandlerRegistry& registry, std::ostream& stream, bool forStorage) {
    writeDocument(registry, expectedSize(registry), forStorage ? escapedDisplayName : expandedDisplayName,
                  writerTo(stream));
}

void writeRegistryJson(const RegistrySnapshot& snapshot, std::ostream& stream) {
    std::string name;
    const auto expanded = [&](const HandlerObject& handler) -> std::string_view {
        name.clear();
        appendExpandedName(name, {handler.displayname, handler.nameSize}, handler.version);
        return name;
    };
    writeDocument(snapshot.handlers(), snapshot.textSize(), expanded, writerTo(stream));
}

} // namespace quelm
