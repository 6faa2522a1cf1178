// --list and --list-json, which ignore their arguments.
#include <cstdio>
#include <iostream>

#include "commands/Commands.h"
#include "registry/RegistryFile.h"
#include "registry/RegistryWriter.h"

namespace quelm {

namespace {

// The listings are written in large pieces; stdio's buffer would only add a copy.
std::ostream& unbufferStandardOutput() {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    return std::cout;
}

} // namespace

int listCommand(int /*argc*/, char** /*argv*/) {
    writeHandlerTable(RegistrySnapshot(registryPath).handlers(), unbufferStandardOutput());
    return 0;
}

int listJsonCommand(int /*argc*/, char** /*argv*/) {
    constexpr bool forStorage = false;
    writeRegistryJson(RegistrySnapshot(registryPath).handlers(), unbufferStandardOutput(), forStorage);
    return 0;
}

} // namespace quelm
