// --remove. An unknown identifier is only a warning, so that package scripts can remove twice; a system
// handler is refused.
#include <algorithm>
#include <iostream>
#include <iterator>

#include "base/QuelmUtilException.h"
#include "commands/CommandOptions.h"
#include "commands/Commands.h"
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

// Deliberate: the hooks get the handler that moves into the removed one's place; configurators rely on it.
// When the last record is removed there is none, and they get the removed handler itself.
PhpHandler handlerForHooks(const HandlerRegistry& registry, const PhpHandler& removed) {
    const auto isRemoved = [&removed](const PhpHandler& handler) { return handler.id == removed.id; };
    const auto next = std::next(std::find_if(registry.begin(), registry.end(), isRemoved));
    return next != registry.end() ? *next : removed;
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
    const PhpHandler forHooks = handlerForHooks(registry, *handler);
    remove(registry, id);
    save(registry, registryPath);
    runConfigurators("remove", forHooks);
    if (!options.skipDirtyFlag()) {
        setDepotDirtyFlag();
    }
}

} // namespace

// --help is accepted and ignored; callers pass it together with an identifier.
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
