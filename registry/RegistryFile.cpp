#include "registry/RegistryFile.h"

#include "registry/RegistrySnapshot.h"
#include "registry/RegistryWriter.h"
#include "registry/TextFile.h"

namespace quelm {

void load(HandlerRegistry& registry, const std::string& path) {
    registry.clear();
    const RegistrySnapshot snapshot(path);
    try {
        registry.reserve(snapshot.handlers().size());
        for (const HandlerObject& handler : snapshot.handlers()) {
            registry.append(copyOf(viewOf(handler)));
        }
    } catch (...) {
        registry.clear();
        throw;
    }
}

void save(const HandlerRegistry& registry, const std::string& path) {
    writeTextFile(path, registryJson(registry));
}

} // namespace quelm
