// Tells the rest of the panel that a handler changed, through the hook scripts.
#pragma once

#include <string>

#include "registry/PhpHandler.h"

namespace quelm {

inline constexpr const char* hookDirectory = "/etc/ovt/php_configurator.d/";
inline constexpr const char* hookLogPath = "/var/log/quelm/php_handler_configurators.log";

// Runs every hook script, one after another, with `action` as its argument and the handler's data in PHP_*
// variables on top of our own environment, and logs each run. What a script does or returns never fails the
// command. Throws std::filesystem::filesystem_error when the directory cannot be listed (nothing has been run
// or logged then), and std::runtime_error for a handler whose type is out of range.
void runConfigurators(const std::string& action, const PhpHandler& handler);

// The same with another directory and another log.
void runConfigurators(const std::string& action, const PhpHandler& handler, const std::string& directory,
                      const std::string& logPath);

} // namespace quelm
