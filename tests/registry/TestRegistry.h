// What the registry's tests share: records, files in a directory of their own, and caught streams.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "registry/HandlerRegistry.h"
#include "registry/PhpHandler.h"

namespace quelm {

inline bool operator==(const PhpHandler& a, const PhpHandler& b) {
    return a.id == b.id && a.displayname == b.displayname && a.path == b.path && a.clipath == b.clipath &&
           a.version == b.version && a.phpini == b.phpini && a.service == b.service && a.poold == b.poold &&
           a.type == b.type && a.system == b.system;
}

inline void PrintTo(const PhpHandler& handler, std::ostream* stream) {
    *stream << "{id=" << handler.id << " displayname=" << handler.displayname << " path=" << handler.path
            << " clipath=" << handler.clipath << " version=" << handler.version
            << " phpini=" << handler.phpini << " service=" << handler.service << " poold=" << handler.poold
            << " type=" << static_cast<std::uint32_t>(handler.type) << " system=" << handler.system << "}";
}

namespace test {

inline PhpHandler handlerWithId(const std::string& id) {
    return {.id = id,
            .displayname = "d",
            .path = "p",
            .clipath = "c",
            .version = "v",
            .phpini = "i",
            .service = "",
            .poold = "",
            .type = PhpHandlerType::cgi,
            .system = false};
}

inline PhpHandler fpmHandler() {
    return {.id = "php81",
            .displayname = "PHP $version ($version)",
            .path = "/usr/bin/php-cgi8.1",
            .clipath = "/usr/bin/php8.1",
            .version = "8.1.2",
            .phpini = "/etc/php/8.1/fpm/php.ini",
            .service = "php8.1-fpm",
            .poold = "/etc/php/8.1/fpm/pool.d",
            .type = PhpHandlerType::fpm,
            .system = true};
}

inline HandlerRegistry registryOf(std::initializer_list<PhpHandler> handlers) {
    HandlerRegistry registry;
    for (const PhpHandler& handler : handlers) {
        registry.append(handler);
    }
    return registry;
}

inline std::string ids(const HandlerRegistry& registry) {
    std::string text;
    for (const PhpHandler& handler : registry) {
        text += handler.id + " ";
    }
    return text;
}

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("no such test file: " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream file(path, std::ios::binary);
    if (!file.write(text.data(), static_cast<std::streamsize>(text.size())).flush()) {
        throw std::runtime_error("cannot write test file: " + path.string());
    }
}

// A directory that goes away with its content.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "registry-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        path_ = name;
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::filesystem::path path() const { return path_; }
    std::string operator/(const char* name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

// Catches what is written to std::cerr while it lives.
class CaughtErrors {
public:
    CaughtErrors() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
    CaughtErrors(const CaughtErrors&) = delete;
    CaughtErrors& operator=(const CaughtErrors&) = delete;
    ~CaughtErrors() { std::cerr.rdbuf(before_); }

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* before_;
};

} // namespace test

} // namespace quelm
