#include "registry/HandlerTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <string>
#include <string_view>

#include "registry/DisplayName.h"
#include "registry/HandlerView.h"

namespace quelm {

namespace {

constexpr std::size_t columns = 10;
constexpr std::size_t gap = 2; // blanks before each column but the first
using Cells = std::array<std::string_view, columns>;
using Widths = std::array<std::size_t, columns>;

constexpr Cells titles{"id:",      "display name:", "version:", "type:",    "cgi-bin:",
                       "cli-bin:", "php.ini:",      "system:",  "service:", "pool.d:"};

// Calls `use` with the cells of each row; they are valid during the call only.
template <class Handlers, class Use>
void forEachRow(const Handlers& handlers, Use use) {
    use(titles);
    std::string name;
    for (const auto& each : handlers) {
        const HandlerView handler = viewOf(each);
        name.clear();
        appendExpandedName(name, handler.displayname, handler.version);
        use(Cells{handler.id, name, handler.version, handlerTypeName(handler.type), handler.path,
                  handler.clipath, handler.phpini, handler.system ? "*" : "", handler.service,
                  handler.poold});
    }
}

template <class Handlers>
Widths measure(const Handlers& handlers) {
    Widths widths{};
    forEachRow(handlers, [&](const Cells& cells) {
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

void flush(std::string& output, std::ostream& stream) {
    stream.write(output.data(), static_cast<std::streamsize>(output.size()));
    output.clear();
}

template <class Handlers>
void writeTable(const Handlers& handlers, std::ostream& stream) {
    constexpr std::size_t piece = 65536;
    const Widths widths = measure(handlers);
    const std::size_t row = std::accumulate(widths.begin(), widths.end(), gap * columns);
    std::string output;
    output.reserve(std::min(row * (handlers.size() + 1), 2 * piece));
    forEachRow(handlers, [&](const Cells& cells) {
        appendRow(output, cells, widths);
        if (output.size() >= piece) {
            flush(output, stream);
        }
    });
    flush(output, stream);
}

} // namespace

void writeHandlerTable(const HandlerRegistry& registry, std::ostream& stream) {
    writeTable(registry, stream);
}

void writeHandlerTable(const RegistrySnapshot& snapshot, std::ostream& stream) {
    writeTable(snapshot.handlers(), stream);
}

} // namespace quelm
