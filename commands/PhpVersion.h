// The version of a PHP executable, as the executable itself tells it.
#pragma once

#include <optional>
#include <string>

namespace quelm {

// Runs the executable with "-n" and "-v" and returns the dotted number of its banner, such as "8.1.2". The
// php.ini path is not used: "-n" keeps every configuration out. Throws
//   QuelmUtilException                 nothing exists at the path, the run fails, or no banner is found
//   std::filesystem::filesystem_error  the path cannot be examined
//   SystemError                        no child can be started
std::string getPhpVersion(const std::string& binaryPath, const std::string& phpIniPath);

// The version in the output of an interpreter: the number of the first line that is a banner as a whole
// (warnings may stand before it), nothing when there is none. Throws std::runtime_error for a line whose
// number has so many parts that the expression gives up.
std::optional<std::string> findPhpVersion(const std::string& output);

// Prints the mismatch warning on standard error unless the two versions are the same text.
void warnIfVersionsDiffer(const std::string& cgiVersion, const std::string& cliVersion);

} // namespace quelm
