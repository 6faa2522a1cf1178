#include "host/HookScripts.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace quelm {

namespace fs = std::filesystem;

namespace {

// The bit itself is asked, not whether we may execute: root may execute what its owner must not.
bool isScript(const fs::directory_entry& entry) {
    std::error_code unreadable;
    const fs::file_status status = entry.status(unreadable);
    return fs::is_regular_file(status) && (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
}

} // namespace

std::vector<std::string> listHookScripts(const std::string& directory) {
    std::vector<std::string> scripts;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (isScript(entry)) {
            scripts.push_back(entry.path().string());
        }
    }
    std::sort(scripts.begin(), scripts.end());
    return scripts;
}

} // namespace quelm
