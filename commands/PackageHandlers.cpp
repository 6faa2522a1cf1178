#include "commands/PackageHandlers.h"

#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "commands/PhpVersion.h"
#include "registry/PhpHandler.h"

namespace quelm {

namespace fs = std::filesystem;
namespace pt = boost::property_tree;

namespace {

constexpr const char* firstDedicatedVersion = "7.3";

// Compares the end of the path and not the extension, so that a file named just ".conf" counts.
bool isPackageFile(const fs::directory_entry& entry) {
    std::error_code ignored;
    return fs::is_regular_file(entry.status(ignored)) && entry.path().native().ends_with(".conf");
}

void addDedicatedTwin(HandlerRegistry& registry, const PhpHandler& handler) {
    if (::strverscmp(getPhpVersion(handler.path, "").c_str(), firstDedicatedVersion) < 0) {
        return;
    }
    PhpHandler twin = handler;
    twin.id += "-dedicated";
    twin.poold.clear();
    add(registry, twin);
}

void addPackageFile(HandlerRegistry& registry, const std::string& path) {
    try {
        const PhpHandler handler = readPackageFile(path);
        add(registry, handler);
        if (handler.type == PhpHandlerType::fpm) {
            addDedicatedTwin(registry, handler);
        }
    } catch (const pt::ptree_error& failure) {
        std::cerr << "Error reading handler from " << path << ": " << failure.what() << std::endl;
    } catch (const std::runtime_error& failure) {
        std::cerr << "Error adding handler from " << path << ": " << failure.what() << std::endl;
    }
}

} // namespace

PhpHandler readPackageFile(const std::string& path) {
    pt::ptree tree;
    pt::read_ini(path, tree);
    PhpHandler handler;
    handler.displayname = tree.get<std::string>("displayname");
    handler.path = tree.get<std::string>("path");
    handler.clipath = tree.get<std::string>("clipath");
    handler.phpini = tree.get<std::string>("phpini");
    handler.type = parseHandlerType(tree.get<std::string>("type"));
    handler.system = true;
    if (handler.type == PhpHandlerType::fpm) {
        handler.service = tree.get<std::string>("service");
        handler.poold = tree.get<std::string>("poold");
    }
    if (const auto id = tree.get_optional<std::string>("id")) {
        handler.id = *id;
    } else {
        computeHandlerId(handler);
    }
    return handler;
}

void readPackageHandlers(HandlerRegistry& registry) {
    readPackageHandlers(registry, packageDirectory);
}

void readPackageHandlers(HandlerRegistry& registry, const std::string& directory) {
    if (!fs::is_directory(directory)) {
        return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (isPackageFile(entry)) {
            addPackageFile(registry, entry.path().string());
        }
    }
}

} // namespace quelm
