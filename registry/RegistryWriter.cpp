#include "registry/RegistryWriter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "registry/HandlerRegistry.h"
#include "registry/PlainBytes.h"

namespace quelm {

namespace {

// By control byte: what follows the backslash; 'u' is followed by the number.
constexpr std::string_view controlLetters = "uuuuuuuubtnufruuuuuuuuuuuuuuuuuu";

void appendEscape(std::string& output, char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    const char letter = byte < controlLetters.size() ? controlLetters[byte] : c;
    output += '\\';
    output += letter;
    if (letter == 'u') {
        output += "00";
        output += digits[byte >> 4];
        output += digits[byte & 0x0fU];
    }
}

// False when the value is too long.
bool appendEscaped(std::string& output, std::string_view value) {
    const std::size_t longest = output.size() + longestJsonValue;
    for (const char c : value.substr(0, value.find('\0'))) {
        if (isPlain(c)) {
            output += c;
        } else {
            appendEscape(output, c);
        }
        if (output.size() > longest) {
            return false;
        }
    }
    return true;
}

} // namespace

void appendJsonString(std::string& output, std::string_view value) {
    if (value.data() == nullptr) {
        output += "null";
        return;
    }
    const std::size_t start = output.size();
    output += '"';
    if (value.size() <= longestJsonValue && isAllPlain(value)) {
        output += value;
    } else if (!appendEscaped(output, value)) {
        output.resize(start);
        output += "null";
        return;
    }
    output += '"';
}

namespace {

void appendMember(std::string& output, std::string_view prefix, std::string_view value) {
    output += prefix;
    appendJsonString(output, value);
}

void appendHandler(std::string& output, const HandlerView& handler, bool forStorage) {
    output += "\n{\n";
    appendMember(output, "\t\"id\":", handler.id);
    appendMember(output, ",\n\t\"path\":", handler.path);
    appendMember(output, ",\n\t\"clipath\":", handler.clipath);
    appendMember(output, ",\n\t\"phpini\":", handler.phpini);
    appendMember(output, ",\n\t\"version\":", handler.version);
    appendMember(output, ",\n\t\"displayname\":",
                 forStorage ? escapedDisplayName(handler) : expandedDisplayName(handler));
    appendMember(output, ",\n\t\"type\":", handler.type);
    output += handler.system ? ",\n\t\"system\":true" : ",\n\t\"system\":false";
    if (handler.type == "fpm") {
        appendMember(output, ",\n\t\"service\":", handler.service);
        appendMember(output, ",\n\t\"poold\":", handler.poold);
    }
    output += "\n}";
}

} // namespace

template <class Handlers>
void writeRegistryJson(const Handlers& registry, std::ostream& stream, bool forStorage) {
    constexpr std::size_t longestPiece = 65536;
    std::string piece = "{\"php\":[";
    std::string_view separator;
    for (const auto& handler : registry) {
        piece += separator;
        separator = ",";
        appendHandler(piece, handler, forStorage);
        if (piece.size() >= longestPiece) {
            stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
            piece.clear();
        }
    }
    piece += "\n]}\n";
    stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
}

template void writeRegistryJson(const HandlerViews&, std::ostream&, bool);
template void writeRegistryJson(const HandlerRegistry&, std::ostream&, bool);

namespace {

constexpr std::size_t columns = 10;
constexpr std::size_t gap = 2; // blanks before each column but the first
using Cells = std::array<std::string_view, columns>;
using Widths = std::array<std::size_t, columns>;

constexpr Cells titles{"id:",      "display name:", "version:", "type:",    "cgi-bin:",
                       "cli-bin:", "php.ini:",      "system:",  "service:", "pool.d:"};

// Calls `use` with the cells of each row; they are valid during the call only.
template <class Handlers, class Use>
void forEachRow(const Handlers& registry, Use use) {
    use(titles);
    for (const auto& element : registry) {
        const HandlerView& handler = element;
        const std::string name = expandedDisplayName(handler);
        use(Cells{handler.id, name, handler.version, handler.type, handler.path, handler.clipath,
                  handler.phpini, handler.system ? "*" : "", handler.service, handler.poold});
    }
}

template <class Handlers>
Widths measure(const Handlers& registry) {
    Widths widths{};
    forEachRow(registry, [&](const Cells& cells) {
        for (std::size_t column = 0; column < columns; ++column) {
            widths[column] = std::max(widths[column], cells[column].size());
        }
    });
    return widths;
}

void appendRow(std::string& output, const Cells& cells, const Widths& widths) {
    for (std::size_t column = 0; column < columns; ++column) {
        output.append((column == 0 ? 0 : gap) + widths[column] - cells[column].size(), ' ');
        output += cells[column];
    }
    output += '\n';
}

} // namespace

template <class Handlers>
void writeHandlerTable(const Handlers& registry, std::ostream& stream) {
    constexpr std::size_t longestPiece = 65536;
    const Widths widths = measure(registry);
    std::string piece;
    forEachRow(registry, [&](const Cells& cells) {
        appendRow(piece, cells, widths);
        if (piece.size() >= longestPiece) {
            stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
            piece.clear();
        }
    });
    stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
}

template void writeHandlerTable(const HandlerViews&, std::ostream&);
template void writeHandlerTable(const HandlerRegistry&, std::ostream&);

} // namespace quelm
