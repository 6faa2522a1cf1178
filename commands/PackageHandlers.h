// The handlers that operating-system packages describe, one INI file each: php_versions.d(5).
#pragma once

#include <string>

#include "registry/HandlerRegistry.h"

namespace quelm {

inline constexpr const char* packageDirectory = "/etc/ovt/php_versions.d";

// Adds the handler of every regular file *.conf of the package directory, in the order in which the directory
// lists them, and the "-dedicated" twin of each fpm handler of PHP 7.3 or later. A file that cannot be read
// or added is reported on standard error and skipped; a handler that it already added stays. Nothing is added
// when the path is missing or not a directory. Throws std::filesystem::filesystem_error when the directory
// cannot be examined or listed.
void readPackageHandlers(HandlerRegistry& registry);

// The same for another directory.
void readPackageHandlers(HandlerRegistry& registry, const std::string& directory);

// The handler that a package file describes; its version is empty. Throws boost::property_tree::ptree_error
// when the file cannot be read as INI or lacks a key, QuelmUtilException for an unknown type.
PhpHandler readPackageFile(const std::string& path);

} // namespace quelm
