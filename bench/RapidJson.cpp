// rapidjson [FILE]: what --list-json does, as one would write it with RapidJSON: the in-place SAX reader and
// a hash set for duplicates.
#include <unordered_set>
#include <utility>

#include <rapidjson/reader.h>

#include "bench/Yardstick.h"

namespace {

using namespace yardstick;

class Handler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Handler> {
public:
    std::vector<Record> records;

    bool StartObject() {
        if (++depth_ == 2) {
            record_ = Record();
        }
        return true;
    }
    bool EndObject(rapidjson::SizeType) {
        if (depth_-- == 2 && ids_.insert(record_.values[0]).second) {
            records.push_back(std::move(record_));
        }
        return true;
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        member_ = memberOf(std::string_view(text, length));
        return true;
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (depth_ == 2 && member_ < members.size()) {
            take(record_, member_, std::string_view(text, length));
        }
        return true;
    }
    bool Bool(bool value) {
        if (depth_ == 2 && member_ == yardstick::system) {
            record_.values[member_] = value ? "true" : "false";
        }
        return true;
    }

private:
    int depth_ = 0;
    std::size_t member_ = members.size();
    Record record_;
    std::unordered_set<std::string> ids_;
};

} // namespace

int main(int argc, char** argv) {
    std::string text = readAll(argc > 1 ? argv[1] : "/etc/ovt/php_versions.json", 16);
    Handler handler;
    rapidjson::InsituStringStream stream(text.data());
    rapidjson::Reader reader;
    if (!reader.Parse<rapidjson::kParseInsituFlag>(stream, handler)) {
        return 1;
    }
    return print(handler.records);
}
