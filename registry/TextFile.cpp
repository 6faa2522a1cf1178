#include "registry/TextFile.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "cli/Log.h"
#include "cli/ScopedSignal.h"

namespace quelm {

namespace {

// Closes the descriptor, keeping errno, unless close() did.
class OpenFile {
public:
    explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() {
        const int kept = errno;
        if (isOpen()) {
            ::close(descriptor_);
        }
        errno = kept;
    }

    bool isOpen() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    bool close() {
        const int result = ::close(descriptor_);
        descriptor_ = -1;
        return result == 0;
    }

private:
    int descriptor_;
};

// A FIFO or terminal in the file's place must neither hang us nor become ours. A file that another process
// holds a lease on answers such an open with EWOULDBLOCK; only an open that waits gets it when the lease is
// given back.
int openWithoutHanging(const std::string& path, int flags) {
    constexpr mode_t newFileMode = 0666;
    const int common = flags | O_CLOEXEC | O_NOCTTY;
    const int descriptor = ::open(path.c_str(), common | O_NONBLOCK, newFileMode);
    if (descriptor == -1 && errno == EWOULDBLOCK) {
        return ::open(path.c_str(), common, newFileMode);
    }
    return descriptor;
}

// -1 on failure.
ssize_t readSome(int descriptor, char* into, std::size_t room) {
    ssize_t count;
    do {
        count = ::read(descriptor, into, room);
    } while (count < 0 && errno == EINTR);
    return count;
}

void grow(FileText& text, std::size_t capacity) {
    auto larger = std::make_unique_for_overwrite<char[]>(capacity);
    std::memcpy(larger.get(), text.bytes.get(), text.size);
    text.bytes = std::move(larger);
}

// The size that the file had when it was opened is only a hint. Nothing when a read fails.
std::optional<FileText> readToEnd(int descriptor, std::size_t expectedSize) {
    std::size_t capacity = expectedSize + 2;
    FileText text{std::make_unique_for_overwrite<char[]>(capacity)};
    for (;;) {
        const std::size_t room = capacity - 1 - text.size;
        const ssize_t count = readSome(descriptor, text.bytes.get() + text.size, room);
        if (count < 0) {
            return std::nullopt;
        }
        text.size += static_cast<std::size_t>(count);
        if (count == 0) {
            text.bytes[text.size] = '\0';
            return text;
        }
        if (text.size == capacity - 1) {
            capacity *= 2;
            grow(text, capacity);
        }
    }
}

void logFailure(const char* action, const std::string& path, const char* reason) {
    const int kept = errno;
    log_message(LOG_ERR, "Unable to %s %s: %s", action, path.c_str(), reason);
    errno = kept;
}

// A file that cannot be read is no registry yet, and the next save replaces it; the log tells why.
FileText unreadable(const std::string& path) {
    if (errno != ENOENT) {
        logFailure("read", path, std::strerror(errno));
    }
    return {};
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

FileText readTextFile(const std::string& path) {
    const OpenFile file(openWithoutHanging(path, O_RDONLY));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.descriptor(), &status) != 0) {
        return unreadable(path);
    }
    if (!S_ISREG(status.st_mode)) {
        logFailure("read", path, "not a regular file");
        return {};
    }
    auto text = readToEnd(file.descriptor(), static_cast<std::size_t>(status.st_size));
    return text ? std::move(*text) : unreadable(path);
}

void writeTextFile(const std::string& path, std::string_view text) {
    // A file size limit must show as a failed write, not end the program with half a file.
    const ScopedSignal ignored(SIGXFSZ, SIG_IGN);
    OpenFile file(openWithoutHanging(path, O_WRONLY | O_CREAT | O_TRUNC));
    if (!file.isOpen()) {
        logFailure("open", path, std::strerror(errno));
    } else if (!writeAll(file.descriptor(), text)) {
        logFailure("write", path, std::strerror(errno));
    } else if (!file.close()) {
        logFailure("close", path, std::strerror(errno));
    }
}

} // namespace quelm
