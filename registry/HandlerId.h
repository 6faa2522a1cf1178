// The identifier of a handler that was not given one.
#pragma once

#include <string>

#include "registry/PhpHandler.h"

namespace quelm {

// Stores and returns the SHA-1 digest, as 40 lower-case hexadecimal digits, of the raw display name, the
// php-cgi path, the php.ini path and the type's word, joined by single blanks. Version, php-cli, service and
// pool directory do not count. Throws std::runtime_error when the digest cannot be computed or the type is
// none of the four; the handler is then unchanged.
std::string computeHandlerId(PhpHandler& handler);

} // namespace quelm
