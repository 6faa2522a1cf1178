// --update. The options are applied in a fixed order, whatever their order on the command line: the type
// before service and pool directory, so that one call can turn a handler into an fpm one. Every check comes
// before the save.
#include "base/QuelmUtilException.h"
#include "commands/CommandOptions.h"
#include "commands/Commands.h"
#include "commands/PhpVersion.h"
#include "host/HookRunner.h"
#include "host/SiblingTools.h"
#include "registry/RegistryFile.h"

namespace quelm {

namespace {

// Returns whether the option was given; if not, the field is unchanged.
bool take(const CommandOptions& options, const char* name, std::string& field) {
    if (!options.given(name)) {
        return false;
    }
    field = options.text(name);
    return true;
}

void takeType(PhpHandler& handler, const CommandOptions& options) {
    std::string type;
    if (!take(options, "type", type)) {
        return;
    }
    if (type == "module") {
        throw QuelmUtilException("Unable to set custom handler type to `module'");
    }
    handler.type = parseHandlerType(type);
}

void requireFpm(const PhpHandler& handler, const CommandOptions& options, const std::string& name) {
    if (options.given(name.c_str()) && handler.type != PhpHandlerType::fpm) {
        throw QuelmUtilException("--" + name + " option is valid only for fpm handlers");
    }
}

void takeFpm(PhpHandler& handler, const CommandOptions& options) {
    requireFpm(handler, options, "service");
    if (take(options, "service", handler.service)) {
        checkServiceExists(handler.service);
    }
    requireFpm(handler, options, "poold");
    take(options, "poold", handler.poold);
}

void probe(PhpHandler& handler) {
    const std::string version = getPhpVersion(handler.path, handler.phpini);
    if (!handler.clipath.empty()) {
        warnIfVersionsDiffer(version, getPhpVersion(handler.clipath, handler.phpini));
    }
    handler.version = version;
}

void applyOptions(PhpHandler& handler, const CommandOptions& options) {
    take(options, "displayname", handler.displayname);
    const bool newPath = take(options, "path", handler.path);
    const bool newCli = take(options, "clipath", handler.clipath);
    const bool newIni = take(options, "phpini", handler.phpini);
    takeType(handler, options);
    takeFpm(handler, options);
    if (newPath || newCli || newIni) {
        probe(handler);
    }
}

PhpHandler& findCustomHandler(HandlerRegistry& registry, const std::string& id) {
    PhpHandler* handler = find(registry, id);
    if (handler == nullptr) {
        throw QuelmUtilException("Handler with id=`" + id + "' not found");
    }
    if (handler->system) {
        throw QuelmUtilException("Cannot modify system handler with id=`" + id +
                                 "': edit corresponding config file instead.");
    }
    return *handler;
}

void updateHandler(const CommandOptions& options) {
    const std::string id = options.text("id");
    HandlerRegistry registry;
    load(registry, registryPath);
    PhpHandler& handler = findCustomHandler(registry, id);
    applyOptions(handler, options);
    save(registry, registryPath);
    runConfigurators("update", handler);
    if (!options.skipDirtyFlag()) {
        setDepotDirtyFlag();
    }
}

} // namespace

// The help of --type does not name fpm, although it is accepted: deliberate, front ends show this text.
CommandOptions updateOptions() {
    CommandOptions options("Update handler options");
    options.addText("id", "handler id");
    options.addText("displayname", "human readable handler name");
    options.addText("path", "path to php-cgi");
    options.addText("clipath", "path to php-cli");
    options.addText("phpini", "path to php.ini");
    options.addText("type", "php handler type : <cgi|fastcgi>");
    options.addDirtyFlagSwitch();
    options.addText("service", "service name for fpm");
    options.addText("poold", "path to pool.d for fpm");
    return options;
}

int updateCommand(int argc, char** argv) {
    CommandOptions options = updateOptions();
    return options.run(argc, argv, [&options] { updateHandler(options); });
}

} // namespace quelm
