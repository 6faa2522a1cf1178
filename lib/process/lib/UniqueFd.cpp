#include "lib/process/lib/UniqueFd.h"

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace quelm {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        close();
        descriptor_ = other.release();
    }
    return *this;
}

int UniqueFd::release() {
    return std::exchange(descriptor_, -1);
}

// Linux frees the number even when close reports EINTR, so it is never closed a second time.
void UniqueFd::close() {
    if (!isOpen()) {
        return;
    }
    const int kept = errno;
    ::close(release());
    errno = kept;
}

} // namespace quelm
