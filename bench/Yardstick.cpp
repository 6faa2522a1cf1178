// yardstick FILE: what --list-json does, as one would write it with RapidJSON: the in-place SAX reader, a
// hash set for duplicates, libcurl's unescape for the display name, and one buffered write to standard
// output.
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <curl/curl.h>
#include <fcntl.h>
#include <rapidjson/reader.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::array<std::string_view, 10> members{"id",          "path", "clipath", "phpini",  "version",
                                                   "displayname", "type", "system",  "service", "poold"};
constexpr std::size_t displayName = 5;
constexpr std::size_t system = 7;

struct Record {
    std::array<std::string, members.size()> values;
};

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
        member_ = 0;
        while (member_ < members.size() && members[member_] != std::string_view(text, length)) {
            ++member_;
        }
        return true;
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (depth_ == 2 && member_ < members.size()) {
            take(text, length);
        }
        return true;
    }
    bool Bool(bool value) {
        if (depth_ == 2 && member_ == system) {
            record_.values[system] = value ? "true" : "false";
        }
        return true;
    }

private:
    void take(const char* text, rapidjson::SizeType length) {
        if (member_ != displayName) {
            record_.values[member_].assign(text, length);
            return;
        }
        int decoded = 0;
        char* name = curl_easy_unescape(nullptr, text, static_cast<int>(length), &decoded);
        record_.values[member_].assign(name, static_cast<std::size_t>(decoded));
        curl_free(name);
    }

    int depth_ = 0;
    std::size_t member_ = members.size();
    Record record_;
    std::unordered_set<std::string> ids_;
};

std::string readAll(const char* path) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat status {};
    ::fstat(file, &status);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t count = ::read(file, text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    ::close(file);
    return text;
}

void appendString(std::string& out, const std::string& value) {
    out += '"';
    for (const char byte : value) {
        if (byte == '"' || byte == '\\') {
            out += '\\';
        }
        out += byte;
    }
    out += '"';
}

std::string expanded(std::string name, const std::string& version) {
    for (std::size_t at = 0; (at = name.find("$version", at)) != std::string::npos; at += version.size()) {
        name.replace(at, std::strlen("$version"), version);
    }
    return name;
}

std::string write(const std::vector<Record>& records) {
    std::string out = "{\"php\":[";
    for (const Record& record : records) {
        out += &record == records.data() ? "\n{\n" : ",\n{\n";
        const std::size_t count = record.values[6] == "fpm" ? members.size() : system + 1;
        for (std::size_t member = 0; member < count; ++member) {
            out += member == 0 ? "\t\"" : ",\n\t\"";
            out += members[member];
            out += "\":";
            if (member == system) {
                out += record.values[member];
            } else if (member == displayName) {
                appendString(out, expanded(record.values[member], record.values[4]));
            } else {
                appendString(out, record.values[member]);
            }
        }
        out += "\n}";
    }
    out += "\n]}\n";
    return out;
}

} // namespace

int main(int argc, char** argv) {
    std::string text = readAll(argc > 1 ? argv[1] : "/etc/ovt/php_versions.json");
    Handler handler;
    rapidjson::InsituStringStream stream(text.data());
    rapidjson::Reader reader;
    if (!reader.Parse<rapidjson::kParseInsituFlag>(stream, handler)) {
        return 1;
    }
    const std::string document = write(handler.records);
    return ::write(STDOUT_FILENO, document.data(), document.size()) < 0 ? 1 : 0;
}
