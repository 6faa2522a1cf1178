// What the registry file held when it was read. A listing needs no more; a registry to be changed is made
// from it.
#pragma once

#include <cstddef>
#include <string>

#include "registry/HandlerArray.h"
#include "registry/HandlerView.h"
#include "registry/TextFile.h"

namespace quelm {

class RegistrySnapshot {
public:
    // A file that is missing, empty, no regular file, or cannot be opened or read to its end has no handlers;
    // unless it is missing or empty, the log says why, at error level. A handler whose id an earlier one has
    // is left out with a warning on std::cerr. Throws QuelmUtilException when the text is not the accepted
    // document (see RegistryDocument.h) or a handler's type is unknown; nothing is warned about before the
    // whole text is accepted.
    explicit RegistrySnapshot(const std::string& path);

    // In the order of the file, no two with the same id, display names decoded. They lie in the snapshot.
    const HandlerArray& handlers() const { return handlers_; }

    // Of the text that was read, in bytes.
    std::size_t textSize() const { return text_.size; }

private:
    FileText text_;
    HandlerArray handlers_;
};

// Of a snapshot's handler, and valid as long as the snapshot.
HandlerView viewOf(const HandlerObject& handler);

} // namespace quelm
