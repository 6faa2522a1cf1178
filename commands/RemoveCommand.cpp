// --remove. An unknown identifier is a warning, so that package scripts may remove twice; a handler of a
// package is refused.
#include <iostream>

#include "cli/CommandHandlers.h"
#include "cli/QuelmUtilException.h"
#include "commands/CommandDescriptions.h"
#include "commands/PackageHandlers.h"
#include "host/HookRunner.h"
#include "host/SiblingTools.h"
#include "registry/RegistryFile.h"

namespace quelm {

namespace {

void refuseSystemHandler(const PhpHandler& handler) {
    if (handler.system) {
        throw QuelmUtilException("Handler with id = `" + handler.id +
                                 "' is provided by some package.\n"
                                 "Please deinstall it or edit appropriate config in " +
                                 packageDirectory);
    }
}

// The hooks are told the handler that moved into the removed one's place: configurators rely on it. Behind
// the last record there is none, and they are told the removed handler itself.
void removeAt(HandlerRegistry& registry, std::size_t position) {
    const PhpHandler removed = registry[position];
    remove(registry, removed.id);
    save(registry, registryPath);
    runConfigurators("remove", position < registry.size() ? registry[position] : removed);
}

void removeHandler(const CommandOptions& options) {
    HandlerRegistry registry;
    load(registry, registryPath);
    const std::string id = options.text("id");
    const PhpHandler* handler = find(registry, id);
    if (handler == nullptr) {
        std::cerr << "[Warning] Handler with id `" << id << "' does not exist" << std::endl;
        return;
    }
    refuseSystemHandler(*handler);
    removeAt(registry, static_cast<std::size_t>(handler - &registry[0]));
    if (!options.skipDirtyFlag()) {
        setDepotDirtyFlag();
    }
}

} // namespace

// The help option is accepted and never looked at; callers pass it along with an identifier.
CommandOptions removeOptions() {
    CommandOptions options("Remove handler options");
    options.addRequiredText("id", "php handler identifier");
    options.addFlag("help", "show help");
    options.addDirtyFlagSwitch();
    return options;
}

int removeCommand(int argc, char** argv) {
    CommandOptions options = removeOptions();
    return options.run(argc, argv, [&options] { removeHandler(options); });
}

} // namespace quelm
