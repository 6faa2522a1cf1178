// The forms of a display name: as people see it and as the registry file holds it.
#pragma once

#include <string>
#include <string_view>

#include "registry/PhpHandler.h"

namespace quelm {

// The display name with every "$version" replaced by the version. Inserted text is not searched again.
std::string expandedDisplayName(const PhpHandler& handler);

// The display name percent-encoded: every byte but ASCII letters, digits and "-._~" becomes "%" and two
// upper-case hexadecimal digits. Throws std::runtime_error when libcurl cannot encode it.
std::string escapedDisplayName(const PhpHandler& handler);

// The inverse of escapedDisplayName; "%00" gives a NUL byte, a "%" without two hexadecimal digits stays as it
// is. Throws std::runtime_error when libcurl cannot decode it.
std::string unescapedDisplayName(std::string_view escaped);

} // namespace quelm
