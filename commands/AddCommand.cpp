// --add. The order is part of the interface: a failure before the save leaves the registry file unchanged,
// but a default limit that was set stays; the identifier is printed before the hooks run.
#include <iostream>

#include "base/QuelmUtilException.h"
#include "commands/CommandOptions.h"
#include "commands/Commands.h"
#include "commands/PhpVersion.h"
#include "host/HookRunner.h"
#include "host/SiblingTools.h"
#include "registry/RegistryFile.h"

namespace quelm {

namespace {

// Not a default value of the option library, which would print it in the description.
std::string displayNameFrom(const CommandOptions& options) {
    return options.given("displayname") ? options.text("displayname") : "$version";
}

void identify(PhpHandler& handler, const CommandOptions& options) {
    if (options.given("id")) {
        handler.id = options.text("id");
    } else {
        computeHandlerId(handler);
    }
}

void takeCli(PhpHandler& handler, const CommandOptions& options) {
    if (options.given("clipath")) {
        handler.clipath = options.text("clipath");
        warnIfVersionsDiffer(handler.version, getPhpVersion(handler.clipath, handler.phpini));
    }
}

void takeFpm(PhpHandler& handler, const CommandOptions& options) {
    if (handler.type != PhpHandlerType::fpm) {
        return;
    }
    if (!options.given("service") || !options.given("poold")) {
        throw QuelmUtilException("Service name and pool.d should be specified for type `fpm'");
    }
    handler.service = options.text("service");
    checkServiceExists(handler.service);
    handler.poold = options.text("poold");
    setDefaultUlimit({handler.service});
}

void addHandler(const CommandOptions& options) {
    PhpHandler handler;
    handler.path = options.text("path");
    handler.phpini = options.text("phpini");
    handler.version = getPhpVersion(handler.path, handler.phpini);
    HandlerRegistry registry;
    load(registry, registryPath);
    handler.displayname = displayNameFrom(options);
    handler.type = parseHandlerType(options.text("type"));
    handler.system = false;
    if (handler.type == PhpHandlerType::module) {
        throw QuelmUtilException("Unable to create custom handler with type `module'");
    }
    identify(handler, options);
    takeCli(handler, options);
    takeFpm(handler, options);
    add(registry, handler);
    save(registry, registryPath);
    std::cout << handler.id << std::endl;
    runConfigurators("add", handler);
    if (!options.skipDirtyFlag()) {
        setDepotDirtyFlag();
    }
}

} // namespace

CommandOptions addOptions() {
    CommandOptions options("Add handler options");
    options.addText("id", "handler id");
    options.addText("displayname", "human readable handler name");
    options.addText("path", "path to php-cgi");
    options.addText("clipath", "path to php-cli");
    options.addRequiredText("phpini", "path to php.ini");
    options.addRequiredText("type", "php handler type : <cgi|fastcgi|fpm>");
    options.addDirtyFlagSwitch();
    options.addText("service", "service name for fpm");
    options.addText("poold", "path to pool.d for fpm");
    return options;
}

int addCommand(int argc, char** argv) {
    CommandOptions options = addOptions();
    return options.run(argc, argv, [&options] { addHandler(options); });
}

} // namespace quelm
