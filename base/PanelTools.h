// Where the panel's administration tools are.
#pragma once

#include <string>

namespace quelm {

// Where the panel is installed.
inline constexpr const char* panelRoot = "/opt/ovt";

// The path of the administration tool of that name, below `root`.
inline std::string adminTool(const std::string& root, const std::string& name) {
    return root + "/admin/sbin/" + name;
}

} // namespace quelm
