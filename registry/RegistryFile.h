// The registry file: read whole, rewritten whole and in place, never locked. Two changing runs at the same
// time can lose one another's change.
#pragma once

#include <string>

#include "registry/HandlerRegistry.h"

namespace quelm {

inline constexpr const char* registryPath = "/etc/ovt/php_versions.json";

// Replaces the content of `registry` with the handlers of the file, read, left out and refused as a
// RegistrySnapshot of it does. The registry is empty when that throws.
void load(HandlerRegistry& registry, const std::string& path);

// Overwrites the file with the registry. Does not tell the caller when the file cannot be opened, written or
// closed: that goes to the log, at error level. The file is opened after the document is complete, so an
// exception (out of memory, a record that cannot be written) leaves it as it was.
void save(const HandlerRegistry& registry, const std::string& path);

} // namespace quelm
