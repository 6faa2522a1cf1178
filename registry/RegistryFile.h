// The registry file: read whole, rewritten whole and in place, never locked. Concurrent changes can overwrite
// each other.
#pragma once

#include <string>

#include "base/ByteBuffer.h"
#include "registry/HandlerRegistry.h"
#include "registry/PhpHandler.h"

namespace quelm {

inline constexpr const char* registryPath = "/etc/ovt/php_versions.json";

// The handlers of the file when it was read, for commands that change nothing.
class RegistrySnapshot {
public:
    // A file that is missing, empty, no regular file, or cannot be opened or read to its end has no handlers;
    // unless it is missing or empty, the reason is logged at error level. A handler that repeats an id is
    // dropped with a warning on std::cerr. Throws QuelmUtilException when the text is not the accepted
    // document (see RegistryParser.h) or the type of a handler is unknown.
    explicit RegistrySnapshot(const std::string& path);

    // In file order, no two with the same id, display names decoded. Valid while the snapshot is.
    const HandlerViews& handlers() const { return handlers_; }
    // For load, which releases each view when its record is made.
    HandlerViews& handlers() { return handlers_; }

private:
    ByteBuffer text_;
    HandlerViews handlers_;
};

// Replaces the content of `registry` with the handlers of a RegistrySnapshot, whose failures it shares. The
// registry is empty when that throws.
void load(HandlerRegistry& registry, const std::string& path);

// Overwrites the file with the registry. A failure to open, write or close it is logged at error level and
// not reported to the caller. The document is complete before the file is opened: an exception (out of
// memory, a record that cannot be written) leaves the file unchanged.
void save(const HandlerRegistry& registry, const std::string& path);

} // namespace quelm
