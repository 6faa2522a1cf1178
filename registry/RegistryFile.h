// The registry file: read whole, rewritten whole and in place, never locked. Two changing runs at the same
// time can lose one another's change.
#pragma once

#include <string>

#include "registry/HandlerRegistry.h"

namespace quelm {

inline constexpr const char* registryPath = "/etc/ovt/php_versions.json";

// Replaces the content of `registry` with the records of the file. A file that is missing, empty, no regular
// file, or cannot be opened or read to its end gives an empty registry; unless it is missing or empty, the
// log says why, at error level. A record whose id an earlier one has is left out with a warning on std::cerr.
// Throws QuelmUtilException, the registry then being empty, when the text is not the accepted document (see
// RegistryDocument.h) or a record's type is unknown; nothing is warned about before the whole text is
// accepted.
void load(HandlerRegistry& registry, const std::string& path);

// Overwrites the file with the registry. Does not tell the caller when the file cannot be opened, written or
// closed: that goes to the log, at error level. The file is opened after the document is complete, so an
// exception (out of memory, a record that cannot be written) leaves it as it was.
void save(const HandlerRegistry& registry, const std::string& path);

} // namespace quelm
