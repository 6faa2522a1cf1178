#include "host/SiblingTools.h"

#include <iostream>

#include "base/QuelmUtilException.h"
#include "lib/process/lib/Capture.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/ForkExecv.h"

namespace quelm {

namespace {

constexpr const char* defaultUlimit = "8192";

struct ToolResult {
    int exitCode;
    std::string error;
};

ToolResult runTool(const std::string& path, const ArgVector& arguments) {
    std::string output;
    std::string error;
    const int exitCode = forkExecvGetOutErr(output, error, path, arguments.get());
    return {exitCode, error};
}

} // namespace

void setDepotDirtyFlag(const std::string& root) {
    const std::string tool = adminTool(root, "depotctl");
    const ToolResult result = runTool(tool, ArgVector{tool, "--set-dirty-flag"});
    if (result.exitCode != 0) {
        throw QuelmUtilException("Failed to set depotctl dirty flag : " + result.error);
    }
}

// "--service" is given once, before all names: the tool reads them as one list.
void setDefaultUlimit(const std::vector<std::string>& services, const std::string& root) {
    const std::string tool = adminTool(root, "quotagate");
    ArgVector arguments{tool, "--set", defaultUlimit, "--service"};
    for (const std::string& service : services) {
        arguments.add(service);
    }
    arguments.add("--no-restart");
    const ToolResult result = runTool(tool, arguments);
    if (result.exitCode != 0) {
        std::cerr << "[Error] Failed to set default ulimit: " << result.error << std::endl;
    }
}

void checkServiceExists(const std::string& service, const std::string& root) {
    const std::string tool = adminTool(root, "quelmrc");
    constexpr bool quiet = true;
    if (exec_and_report(tool.c_str(), ArgVector{tool, service, "exists"}.data(), quiet) == 0) {
        return;
    }
    std::string message = service + ": service not found.";
    if (service.ends_with(".service")) {
        message += " Please retry without '.service' suffix.";
    }
    throw QuelmUtilException(message);
}

namespace {

int enlist(const std::string& root, const char* option, const std::string& service) {
    const std::string tool = adminTool(root, "svc_enlist");
    constexpr bool quiet = true;
    return exec_and_report(tool.c_str(), ArgVector{tool, option, service}.data(), quiet);
}

} // namespace

int runServiceAction(const std::string& service, const std::string& action, const std::string& root) {
    const std::string tool = adminTool(root, "quelmrc");
    constexpr bool quiet = false;
    return exec_and_report(tool.c_str(), ArgVector{tool, service, action}.data(), quiet);
}

void printServiceStatus(int status) {
    std::cout << (status != 0 ? "is stopped" : "is running") << std::endl;
}

int enableService(const std::string& service, const std::string& root) {
    return enlist(root, "--enable", service);
}

int disableService(const std::string& service, const std::string& root) {
    return enlist(root, "--disable", service);
}

} // namespace quelm
