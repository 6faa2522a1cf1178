// The two commands that only read the registry. They ignore their arguments.
#include <iostream>

#include "cli/CommandHandlers.h"
#include "registry/HandlerRegistry.h"
#include "registry/HandlerTable.h"
#include "registry/RegistryFile.h"
#include "registry/RegistryWriter.h"

namespace quelm {

int listCommand(int /*argc*/, char** /*argv*/) {
    HandlerRegistry registry;
    load(registry, registryPath);
    writeHandlerTable(registry, std::cout);
    return 0;
}

int listJsonCommand(int /*argc*/, char** /*argv*/) {
    HandlerRegistry registry;
    load(registry, registryPath);
    writeRegistryJson(registry, std::cout, false);
    return 0;
}

} // namespace quelm
