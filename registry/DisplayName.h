// The forms of a display name: as people see it and as the registry file holds it.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "registry/PhpHandler.h"

namespace quelm {

// The display name with every "$version" replaced by the version. Inserted text is not searched again.
std::string expandedDisplayName(const PhpHandler& handler);

// Appends the same for a name and a version that are in no record.
void appendExpandedName(std::string& output, std::string_view name, std::string_view version);

// The display name percent-encoded: every byte but ASCII letters, digits and "-._~" becomes "%" and two
// upper-case hexadecimal digits. Throws std::runtime_error when libcurl cannot encode it.
std::string escapedDisplayName(const PhpHandler& handler);

// Decodes in place what escapedDisplayName encodes and returns the decoded part of `text`; "%00" gives a NUL
// byte, a "%" without two hexadecimal digits stays as it is. Throws std::runtime_error when libcurl cannot
// decode it, the text then being as it was.
std::string_view unescapeDisplayName(std::span<char> text);

} // namespace quelm
