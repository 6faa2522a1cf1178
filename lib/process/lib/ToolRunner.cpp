#include "lib/process/lib/ToolRunner.h"

#include <unistd.h>

#include "lib/process/lib/ArgVector.h"
#include "lib/process/lib/ExecReport.h"
#include "lib/process/lib/ForkExecWait.h"
#include "lib/process/lib/ForkPipes.h"
#include "lib/process/lib/ReportLine.h"
#include "lib/process/lib/WaitStatus.h"

namespace quelm {

namespace {

constexpr const char* panelRoot = "/opt/ovt";
constexpr const char* libraryRoot = "/usr/lib/quelm-9.0";

int execTool(const std::string& path, const std::vector<std::string>& arguments, ToolFailure failure) {
    ArgVector vector{path};
    for (const std::string& argument : arguments) {
        vector.add(argument);
    }
    return exec_and_report(path.c_str(), vector.data(), failure == ToolFailure::quiet);
}

} // namespace

int exec_admin_tool(const std::string& name, const std::vector<std::string>& arguments, ToolFailure failure) {
    if (name.find('/') != std::string::npos) {
        reportLine("Utility name '%s' is invalid. Use only utility name without path.", name.c_str());
        return -1;
    }
    return execTool(std::string(panelRoot) + "/admin/sbin/" + name, arguments, failure);
}

int exec_library_tool(const std::string& name, const std::vector<std::string>& arguments,
                      ToolFailure failure) {
    return execTool(std::string(libraryRoot) + "/" + name, arguments, failure);
}

int fork_and_wait(const char* path, char* const argv[]) {
    const pid_t child =
        startProgram({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}, path, argv, "Unable to fork");
    int status = 0;
    return waitUninterrupted(child, &status, 0) == child ? decodeWaitStatus(status).exitCode() : -1;
}

} // namespace quelm
