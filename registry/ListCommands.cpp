// The two commands that only read the registry. They ignore their arguments.
#include <cstdio>
#include <iostream>

#include "cli/CommandHandlers.h"
#include "registry/HandlerTable.h"
#include "registry/RegistryFile.h"
#include "registry/RegistrySnapshot.h"
#include "registry/RegistryWriter.h"

namespace quelm {

namespace {

// The listings come in pieces of a good size: a buffer behind them would only cost a copy and further calls.
std::ostream& unbufferedOutput() {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    return std::cout;
}

} // namespace

int listCommand(int /*argc*/, char** /*argv*/) {
    const RegistrySnapshot snapshot(registryPath);
    writeHandlerTable(snapshot, unbufferedOutput());
    return 0;
}

int listJsonCommand(int /*argc*/, char** /*argv*/) {
    const RegistrySnapshot snapshot(registryPath);
    writeRegistryJson(snapshot, unbufferedOutput());
    return 0;
}

} // namespace quelm
