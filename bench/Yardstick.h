// What --list-json does, for a parser of somebody else: the record, the reading of the file, and the document
// written with one call to standard output.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace yardstick {

inline constexpr std::array<std::string_view, 10> members{
    "id", "path", "clipath", "phpini", "version", "displayname", "type", "system", "service", "poold"};
inline constexpr std::size_t displayName = 5;
inline constexpr std::size_t system = 7;

// The values in the order of `members`.
struct Record {
    std::array<std::string, members.size()> values;
};

// members.size() for another name.
inline std::size_t memberOf(std::string_view name) {
    std::size_t member = 0;
    while (member < members.size() && members[member] != name) {
        ++member;
    }
    return member;
}

inline void take(Record& record, std::size_t member, std::string_view text) {
    if (member != displayName) {
        record.values[member].assign(text);
        return;
    }
    int decoded = 0;
    char* name = curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &decoded);
    record.values[member].assign(name, static_cast<std::size_t>(decoded));
    curl_free(name);
}

// With `padding` bytes behind the text's end in its capacity.
inline std::string readAll(const char* path, std::size_t padding) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat status {};
    ::fstat(file, &status);
    std::string text;
    text.reserve(static_cast<std::size_t>(status.st_size) + padding);
    text.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t count = ::read(file, text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    ::close(file);
    return text;
}

inline void appendString(std::string& out, const std::string& value) {
    out += '"';
    for (const char byte : value) {
        if (byte == '"' || byte == '\\') {
            out += '\\';
        }
        out += byte;
    }
    out += '"';
}

inline std::string expanded(std::string name, const std::string& version) {
    for (std::size_t at = 0; (at = name.find("$version", at)) != std::string::npos; at += version.size()) {
        name.replace(at, std::strlen("$version"), version);
    }
    return name;
}

inline void appendRecord(std::string& out, const Record& record) {
    const std::size_t count = record.values[6] == "fpm" ? members.size() : system + 1;
    for (std::size_t member = 0; member < count; ++member) {
        out.append(member == 0 ? "\t\"" : ",\n\t\"").append(members[member]).append("\":");
        if (member == system) {
            out += record.values[member];
        } else {
            appendString(out, member == displayName ? expanded(record.values[member], record.values[4])
                                                    : record.values[member]);
        }
    }
}

// The exit status.
inline int print(const std::vector<Record>& records) {
    std::string out = "{\"php\":[";
    for (const Record& record : records) {
        out += &record == records.data() ? "\n{\n" : ",\n{\n";
        appendRecord(out, record);
        out += "\n}";
    }
    out += "\n]}\n";
    return ::write(STDOUT_FILENO, out.data(), out.size()) < 0 ? 1 : 0;
}

} // namespace yardstick
