#include "lib/process/lib/GroupLookup.h"

#include <cerrno>
#include <cstring>

#include <grp.h>

#include "lib/process/lib/ReportLine.h"

namespace quelm {

namespace {

const char* reason() {
    return errno != 0 ? std::strerror(errno) : "Group not found";
}

} // namespace

// The database leaves errno alone for a group that does not exist, so it must be 0 beforehand.
std::optional<Group> findGroupByName(const std::string& name) {
    errno = 0;
    const group* found = ::getgrnam(name.c_str());
    if (found == nullptr) {
        reportLine("getgrnam(%s): %s", name.c_str(), reason());
        return std::nullopt;
    }
    return Group{found->gr_name, found->gr_gid};
}

std::optional<Group> findGroupByGid(gid_t gid) {
    errno = 0;
    const group* found = ::getgrgid(gid);
    if (found == nullptr) {
        reportLine("getgrgid(%u): %s", gid, reason());
        return std::nullopt;
    }
    return Group{found->gr_name, found->gr_gid};
}

} // namespace quelm
