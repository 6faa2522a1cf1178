// The registry as a JSON document: for the registry file and, with display names as people see them, for the
// control panel. Layout and order of members are fixed, byte for byte.
#pragma once

#include <ostream>
#include <string>

#include "registry/HandlerRegistry.h"
#include "registry/RegistrySnapshot.h"

namespace quelm {

// The document for storage. Throws std::runtime_error when a record's type is none of the four or its display
// name cannot be encoded.
std::string registryJson(const HandlerRegistry& registry);

// Writes the document piece by piece: for storage with percent-encoded display names, else with expanded
// ones. Throws as registryJson does, when it comes to the record; a stream that fails is left to the caller.
void writeRegistryJson(const HandlerRegistry& registry, std::ostream& stream, bool forStorage);

// Writes what the registry file holds as a listing: the same bytes as for a registry loaded from it.
void writeRegistryJson(const RegistrySnapshot& snapshot, std::ostream& stream);

} // namespace quelm
