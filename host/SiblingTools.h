// The panel's tools that hear of our changes.
#pragma once

#include <string>
#include <vector>

namespace quelm {

// Where the panel is installed; its tools stand below it in admin/sbin.
inline constexpr const char* panelRoot = "/opt/ovt";

// The path of an administration tool.
std::string adminTool(const std::string& root, const std::string& name);

// `depotctl --set-dirty-flag`. Throws QuelmUtilException with the tool's standard error when it does not exit
// with 0, and SystemError when it cannot be started for want of resources.
void setDepotDirtyFlag(const std::string& root = panelRoot);

// `quotagate` with the default limit for all the services in one call, also for an empty list. A failure is
// one message on standard error and no exception; SystemError as above.
void setDefaultUlimit(const std::vector<std::string>& services, const std::string& root = panelRoot);

} // namespace quelm
