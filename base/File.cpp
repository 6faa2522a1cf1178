#include "base/File.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "base/Log.h"
#include "base/ProcessState.h"

namespace quelm {

namespace {

void logFailure(const char* action, const std::string& path, const char* reason) {
    log_message(LOG_ERR, "Unable to %s %s: %s", action, path.c_str(), reason);
}

// A missing file is not a failure.
ByteBuffer nothingRead(const std::string& path) {
    if (errno != ENOENT) {
        logFailure("read", path, std::strerror(errno));
    }
    return {};
}

void requireMemory(bool granted) {
    if (!granted) {
        throw std::bad_alloc();
    }
}

} // namespace

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        close();
        descriptor_ = other.release();
    }
    return *this;
}

// Linux frees the number even when close reports EINTR, so it is never closed a second time.
void UniqueFd::close() {
    if (isOpen()) {
        const KeepErrno keep;
        ::close(release());
    }
}

// A non-blocking open of a leased file fails with EWOULDBLOCK; a blocking one waits for the lease.
UniqueFd openWithoutHanging(const std::string& path, int flags) {
    constexpr mode_t newFileMode = 0666;
    const int common = flags | O_CLOEXEC | O_NOCTTY;
    UniqueFd file(::open(path.c_str(), common | O_NONBLOCK, newFileMode));
    if (!file.isOpen() && errno == EWOULDBLOCK) {
        file = UniqueFd(::open(path.c_str(), common, newFileMode));
    }
    return file;
}

ssize_t readSome(int descriptor, char* bytes, std::size_t count) {
    ssize_t done = -1;
    do {
        done = ::read(descriptor, bytes, count);
    } while (done == -1 && errno == EINTR);
    return done;
}

ReadEnd readToEnd(int descriptor, ByteBuffer& buffer) {
    constexpr std::size_t firstCapacity = 4096;
    for (;;) {
        if (buffer.room() < 2 &&
            !buffer.reserve(buffer.capacity() == 0 ? firstCapacity : 2 * buffer.capacity())) {
            return ReadEnd::noMemory;
        }
        const ssize_t count = readSome(descriptor, buffer.end(), buffer.room() - 1);
        if (count <= 0) {
            return count == 0 ? ReadEnd::endOfFile : ReadEnd::failed;
        }
        buffer.extend(static_cast<std::size_t>(count));
    }
}

std::size_t writeAll(int descriptor, std::string_view bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            break;
        }
    }
    return written;
}

// The size that the file had when it was opened is only a hint.
ByteBuffer readTextFile(const std::string& path) {
    const UniqueFd file = openWithoutHanging(path, O_RDONLY);
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        return nothingRead(path);
    }
    if (!S_ISREG(status.st_mode)) {
        logFailure("read", path, "not a regular file");
        return {};
    }
    ByteBuffer text;
    requireMemory(text.reserve(static_cast<std::size_t>(status.st_size) + 2));
    const ReadEnd end = readToEnd(file.get(), text);
    requireMemory(end != ReadEnd::noMemory);
    if (end == ReadEnd::failed) {
        return nothingRead(path);
    }
    text.terminate();
    return text;
}

void writeTextFile(const std::string& path, std::string_view text) {
    UniqueFd file = openWithoutHanging(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.isOpen()) {
        logFailure("open", path, std::strerror(errno));
    } else if (writeAll(file.get(), text) < text.size()) {
        logFailure("write", path, std::strerror(errno));
    } else if (::close(file.release()) != 0) {
        logFailure("close", path, std::strerror(errno));
    }
}

} // namespace quelm
