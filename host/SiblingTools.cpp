#include "host/SiblingTools.h"

#include <iostream>

#include "cli/QuelmUtilException.h"
#include "lib/process/lib/ArgVector.h"
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

std::string adminTool(const std::string& root, const std::string& name) {
    return root + "/admin/sbin" + "/" + name;
}

void setDepotDirtyFlag(const std::string& root) {
    const std::string path = adminTool(root, "depotctl");
    const ToolResult result = runTool(path, ArgVector{path, "--set-dirty-flag"});
    if (result.exitCode != 0) {
        throw QuelmUtilException("Failed to set depotctl dirty flag : " + result.error);
    }
}

// "--service" stands once, before all names: the tool reads them as one list.
void setDefaultUlimit(const std::vector<std::string>& services, const std::string& root) {
    const std::string path = adminTool(root, "quotagate");
    ArgVector arguments{path, "--set", defaultUlimit, "--service"};
    for (const std::string& service : services) {
        arguments.add(service);
    }
    arguments.add("--no-restart");
    const ToolResult result = runTool(path, arguments);
    if (result.exitCode != 0) {
        std::cerr << "[Error] Failed to set default ulimit: " << result.error << std::endl;
    }
}

} // namespace quelm
