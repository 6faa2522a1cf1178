#include "commands/PhpVersion.h"

#include <filesystem>
#include <iostream>
#include <sstream>

#include <boost/regex.hpp>

#include "base/QuelmUtilException.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/ForkExecv.h"

namespace quelm {

namespace {

std::string runBanner(const std::string& binaryPath) {
    std::string output;
    std::string error;
    const ArgVector arguments{binaryPath, "-n", "-v"};
    if (forkExecvGetOutErr(output, error, binaryPath, arguments.get()) != 0) {
        throw QuelmUtilException("can not get version from " + binaryPath);
    }
    return output;
}

} // namespace

std::optional<std::string> findPhpVersion(const std::string& output) {
    static const boost::regex banner(R"(^PHP\s(\d+(\.\d+)*).*$)");
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        boost::smatch match;
        if (boost::regex_match(line, match, banner)) {
            return match[1].str();
        }
    }
    return std::nullopt;
}

std::string getPhpVersion(const std::string& binaryPath, const std::string& /*phpIniPath*/) {
    if (!std::filesystem::exists(std::filesystem::status(binaryPath))) {
        throw QuelmUtilException("Binary " + binaryPath + " doesn't exists");
    }
    const std::string output = runBanner(binaryPath);
    const std::optional<std::string> version = findPhpVersion(output);
    if (!version) {
        throw QuelmUtilException("Unable to parse php version : " + output);
    }
    return *version;
}

void warnIfVersionsDiffer(const std::string& cgiVersion, const std::string& cliVersion) {
    if (cgiVersion != cliVersion) {
        std::cerr << "[Warning] versions of php-cgi and php-cli do not match: " << cgiVersion
                  << " != " << cliVersion << std::endl;
    }
}

} // namespace quelm
