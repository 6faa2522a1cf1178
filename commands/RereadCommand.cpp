// --reread. Package handlers are dropped and read afresh, then every handler is checked against the file
// system and probed. All of it happens in memory; the file is written once, at the end. No hook scripts run.
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "commands/CommandOptions.h"
#include "commands/Commands.h"
#include "commands/PackageHandlers.h"
#include "commands/PhpVersion.h"
#include "host/SiblingTools.h"
#include "registry/PhpHandler.h"
#include "registry/RegistryFile.h"

namespace quelm {

namespace fs = std::filesystem;

namespace {

// Handlers with a built-in identifier belong to packages even when their flag is clear.
bool isPackageOwned(const PhpHandler& handler) {
    return handler.system || isClassicTypeName(handler.id);
}

// A path that cannot be examined counts as gone: one bad handler must not stop the others.
bool isMissing(const std::string& path) {
    std::error_code ignored;
    return !fs::exists(fs::status(path, ignored));
}

std::string quotedName(const PhpHandler& handler) {
    return "`" + expandedDisplayName(handler) + "' (" + handler.id + ")";
}

bool hasExecutable(const PhpHandler& handler) {
    if (isMissing(handler.path)) {
        std::cerr << "[Warning] removing handler " << quotedName(handler) << " as corresponding "
                  << handler.path << " doesn't exist\n";
        return false;
    }
    return true;
}

// An empty path never exists, so a handler without a php.ini causes a warning on every reread; deliberate.
std::string workingIni(const PhpHandler& handler) {
    if (isMissing(handler.phpini)) {
        std::cerr << "[Warning] " << handler.phpini << " for handler " << quotedName(handler)
                  << " is lost. Trying without php.ini.\n";
        return {};
    }
    return handler.phpini;
}

void probe(PhpHandler& handler, const std::string& phpini) {
    const std::string oldVersion = handler.version;
    handler.version = getPhpVersion(handler.path, phpini);
    if (isClassicTypeName(handler.id) && expandedDisplayName(handler) == oldVersion) {
        handler.displayname = handler.version;
    }
    if (!handler.clipath.empty()) {
        warnIfVersionsDiffer(handler.version, getPhpVersion(handler.clipath, phpini));
    }
}

// Refreshes the handler's version. Returns whether the handler stays.
bool verify(PhpHandler& handler) {
    if (!hasExecutable(handler)) {
        return false;
    }
    const std::string phpini = workingIni(handler);
    try {
        probe(handler, phpini);
        return true;
    } catch (const std::runtime_error& failure) {
        std::cerr << "[Warning] removing handler " << quotedName(handler)
                  << " due to errors in getting php version :" << failure.what() << "\n";
        return false;
    }
}

std::vector<std::string> fpmServices(const HandlerRegistry& registry) {
    std::vector<std::string> services;
    for (const PhpHandler& handler : registry) {
        if (handler.type == PhpHandlerType::fpm) {
            services.push_back(handler.service);
        }
    }
    return services;
}

void rereadHandlers(const CommandOptions& options) {
    HandlerRegistry registry;
    load(registry, registryPath);
    registry.keepIf([](const PhpHandler& handler) { return !isPackageOwned(handler); });
    readPackageHandlers(registry);
    registry.keepIf(verify);
    const std::vector<std::string> services = fpmServices(registry);
    if (!services.empty()) {
        setDefaultUlimit(services);
    }
    save(registry, registryPath);
    if (!options.skipDirtyFlag()) {
        setDepotDirtyFlag();
    }
}

} // namespace

CommandOptions rereadOptions() {
    CommandOptions options("Reread handlers options");
    options.addDirtyFlagSwitch();
    return options;
}

int rereadCommand(int argc, char** argv) {
    CommandOptions options = rereadOptions();
    return options.run(argc, argv, [&options] { rereadHandlers(options); });
}

} // namespace quelm
