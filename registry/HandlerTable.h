// The registry as a table for people.
#pragma once

#include <ostream>

#include "registry/HandlerRegistry.h"
#include "registry/RegistrySnapshot.h"

namespace quelm {

// Writes a row of titles and a row per handler in registry order: ten right-aligned columns, two blanks
// between them, each as wide as its longest value counted in bytes. Display names are expanded; service and
// pool directory are shown whatever the type. Throws std::runtime_error, before anything is written, when a
// record's type is none of the four.
void writeHandlerTable(const HandlerRegistry& registry, std::ostream& stream);
void writeHandlerTable(const RegistrySnapshot& snapshot, std::ostream& stream);

} // namespace quelm
