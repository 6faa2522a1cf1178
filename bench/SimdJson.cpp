// simdjson [FILE]: what --list-json does, as one would write it with simdjson's on-demand parser and a hash
// set for duplicates.
#include <unordered_set>
#include <utility>

#include <simdjson.h>

#include "bench/Yardstick.h"

namespace {

using namespace yardstick;

Record recordOf(simdjson::ondemand::object object) {
    Record record;
    for (auto field : object) {
        const std::string_view name = field.unescaped_key();
        const std::size_t member = memberOf(name);
        if (member == yardstick::system) {
            record.values[member] = bool(field.value()) ? "true" : "false";
        } else if (member < members.size()) {
            take(record, member, std::string_view(field.value().get_string()));
        }
    }
    return record;
}

std::vector<Record> readRecords(simdjson::padded_string_view text) {
    std::vector<Record> records;
    std::unordered_set<std::string> ids;
    simdjson::ondemand::parser parser;
    simdjson::ondemand::document document = parser.iterate(text);
    for (auto element : document["php"].get_array()) {
        Record record = recordOf(element.get_object());
        if (ids.insert(record.values[0]).second) {
            records.push_back(std::move(record));
        }
    }
    return records;
}

} // namespace

int main(int argc, char** argv) {
    const std::string text =
        readAll(argc > 1 ? argv[1] : "/etc/ovt/php_versions.json", simdjson::SIMDJSON_PADDING);
    return print(readRecords(simdjson::padded_string_view(text.data(), text.size(), text.capacity())));
}
