// Which hook scripts there are, and in what order they run.
#pragma once

#include <string>
#include <vector>

namespace quelm {

// The paths of the scripts in `directory`, ascending byte by byte ("10-a" before "9-a"). A script is an entry
// that is, through any symbolic links, a regular file with its owner-execute bit set; everything else is
// passed over in silence. A trailing slash of `directory` is kept single. Throws
// std::filesystem::filesystem_error when the directory cannot be listed.
std::vector<std::string> listHookScripts(const std::string& directory);

} // namespace quelm
