#include "registry/RegistryFile.h"

#include "registry/RegistrySnapshot.h"
#include "registry/RegistryWriter.h"
#include "registry/TextFile.h"

namespace quelm {

namespace {

PhpHandler copyOf(const HandlerObject& handler) {
    return {.id = handler.id,
            .displayname = {handler.displayname, handler.nameSize},
            .path = handler.path,
            .clipath = handler.clipath,
            .version = handler.version,
            .phpini = handler.phpini,
            .service = handler.service,
            .poold = handler.poold,
            .type = handler.type,
            .system = handler.system};
}

} // namespace

void load(HandlerRegistry& registry, const std::string& path) {
    registry.clear();
    const RegistrySnapshot snapshot(path);
    try {
        registry.reserve(snapshot.handlers().size());
        for (const HandlerObject& handler : snapshot.handlers()) {
            registry.append(copyOf(handler));
        }
    } catch (...) {
        registry.clear();
        throw;
    }
}

void save(const HandlerRegistry& registry, const std::string& path) {
    writeTextFile(path, registryJson(registry, JsonPurpose::storage));
}

} // namespace quelm
