#include "registry/RegistryWriter.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "registry/DisplayName.h"
#include "registry/JsonString.h"

namespace quelm {

namespace {

void appendMember(std::string& output, std::string_view prefix, const std::string& value) {
    output += prefix;
    // c_str: a value with a NUL byte is written up to it.
    appendJsonString(output, value.c_str());
}

void appendHandler(std::string& output, const PhpHandler& handler, JsonPurpose purpose) {
    output += "\n{\n";
    appendMember(output, "\t\"id\":", handler.id);
    appendMember(output, ",\n\t\"path\":", handler.path);
    appendMember(output, ",\n\t\"clipath\":", handler.clipath);
    appendMember(output, ",\n\t\"phpini\":", handler.phpini);
    appendMember(output, ",\n\t\"version\":", handler.version);
    appendMember(output, ",\n\t\"displayname\":",
                 purpose == JsonPurpose::storage ? escapedDisplayName(handler)
                                                 : expandedDisplayName(handler));
    appendMember(output, ",\n\t\"type\":", formatHandlerType(handler));
    output += ",\n\t\"system\":";
    output += handler.system ? "true" : "false";
    if (handler.type == PhpHandlerType::fpm) {
        appendMember(output, ",\n\t\"service\":", handler.service);
        appendMember(output, ",\n\t\"poold\":", handler.poold);
    }
    output += "\n}";
}

// Calls `more` after each record, which may empty the output.
template <class More>
void appendDocument(std::string& output, const HandlerRegistry& registry, JsonPurpose purpose, More more) {
    output += "{\"php\":[";
    bool first = true;
    for (const PhpHandler& handler : registry) {
        if (!first) {
            output += ',';
        }
        first = false;
        appendHandler(output, handler, purpose);
        more();
    }
    output += "\n]}\n";
}

// Enough when nothing needs an escape, so that the document is not copied while it grows.
std::size_t expectedSize(const HandlerRegistry& registry) {
    constexpr std::size_t fixedPart = 160;
    std::size_t size = fixedPart;
    for (const PhpHandler& handler : registry) {
        size += fixedPart + handler.id.size() + handler.path.size() + handler.clipath.size() +
                handler.phpini.size() + 2 * handler.version.size() + 3 * handler.displayname.size() +
                handler.service.size() + handler.poold.size();
    }
    return size;
}

} // namespace

std::string registryJson(const HandlerRegistry& registry, JsonPurpose purpose) {
    std::string output;
    output.reserve(expectedSize(registry));
    appendDocument(output, registry, purpose, [] {});
    return output;
}

void writeRegistryJson(const HandlerRegistry& registry, std::ostream& stream, bool forStorage) {
    constexpr std::size_t piece = 65536;
    std::string output;
    output.reserve(std::min(expectedSize(registry), 2 * piece));
    const auto flush = [&] {
        stream.write(output.data(), static_cast<std::streamsize>(output.size()));
        output.clear();
    };
    appendDocument(output, registry, forStorage ? JsonPurpose::storage : JsonPurpose::listing, [&] {
        if (output.size() >= piece) {
            flush();
        }
    });
    flush();
}

} // namespace quelm
