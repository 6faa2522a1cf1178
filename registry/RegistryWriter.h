// The two writers of the registry: a JSON document, for the file and the control panel, and a table for
// people.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "registry/PhpHandler.h"

namespace quelm {

// `registry` is HandlerViews or a HandlerRegistry, of which one view at a time is made. Both functions throw
// std::runtime_error for a record whose type is none of the four, and leave a stream that fails to the
// caller.

// Writes the document, for storage with percent-encoded display names, else with expanded ones. A long one is
// written in pieces of about 64 KiB. Throws std::runtime_error when a display name cannot be encoded.
template <class Handlers>
void writeRegistryJson(const Handlers& registry, std::ostream& stream, bool forStorage);

// Writes a row of titles and a row per handler in registry order: ten right-aligned columns, two blanks
// between them, each as wide as its longest value counted in bytes. Display names are expanded; service and
// pool directory are shown whatever the type.
template <class Handlers>
void writeHandlerTable(const Handlers& registry, std::ostream& stream);

// A value that takes more bytes in this form, quotes not counted, is replaced by null.
inline constexpr std::size_t longestJsonValue = 4087;

// Appends the value in double quotes. Control bytes become \b \t \n \f \r or \u00XX (which JsonReader
// refuses: deliberate), the quote and the backslash get a backslash, all other bytes are copied. The value
// ends at its first NUL byte. A value that is too long, or whose data is a null pointer, becomes a bare null.
void appendJsonString(std::string& output, std::string_view value);

} // namespace quelm
