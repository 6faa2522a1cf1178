#include "host/ServiceTools.h"

#include <iostream>

#include "cli/QuelmUtilException.h"
#include "lib/process/lib/ArgVector.h"
#include "lib/process/lib/ExecReport.h"

namespace quelm {

namespace {

constexpr bool quiet = true;

int runTool(const std::string& path, const std::string& first, const std::string& second, bool silently) {
    const ArgVector arguments{path, first, second};
    return exec_and_report(path.c_str(), arguments.data(), silently);
}

} // namespace

void checkServiceExists(const std::string& service, const std::string& root) {
    if (runTool(adminTool(root, "quelmrc"), service, "exists", quiet) == 0) {
        return;
    }
    std::string message = service + ": service not found.";
    if (service.ends_with(".service")) {
        message += " Please retry without '.service' suffix.";
    }
    throw QuelmUtilException(message);
}

int runServiceAction(const std::string& service, const std::string& action, const std::string& root) {
    return runTool(adminTool(root, "quelmrc"), service, action, !quiet);
}

void printServiceStatus(int status) {
    std::cout << (status != 0 ? "is stopped" : "is running") << std::endl;
}

int enableService(const std::string& service, const std::string& root) {
    return runTool(adminTool(root, "svc_enlist"), "--enable", service, quiet);
}

int disableService(const std::string& service, const std::string& root) {
    return runTool(adminTool(root, "svc_enlist"), "--disable", service, quiet);
}

} // namespace quelm
