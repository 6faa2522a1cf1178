// The version of a PHP executable, from the banner that it prints.
#pragma once

#include <optional>
#include <string>

namespace quelm {

// Runs the executable with "-n" and "-v" and returns the dotted number of its banner, such as "8.1.2". The
// php.ini path is not used: with "-n" PHP reads no configuration. Throws
//   QuelmUtilException                 nothing exists at the path, the run fails, or no banner is found
//   std::filesystem::filesystem_error  the path cannot be examined
//   SystemError                        no child can be started
std::string getPhpVersion(const std::string& binaryPath, const std::string& phpIniPath);

// The version number in the first line of an interpreter's output that is a banner; warnings may precede it.
// Nothing when no line is one. Throws std::runtime_error when a line is too complex for the regular
// expression library.
std::optional<std::string> findPhpVersion(const std::string& output);

// Prints the mismatch warning on standard error unless the two versions are the same text.
void warnIfVersionsDiffer(const std::string& cgiVersion, const std::string& cliVersion);

} // namespace quelm
