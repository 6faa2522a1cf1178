#include "lib/process/lib/OutputBuffer.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ReportLine.h"

namespace quelm {

namespace {

constexpr std::size_t alwaysFree = 2048;
constexpr std::size_t step = 4096;

} // namespace

void OutputBuffer::makeRoom() {
    if (length_ + alwaysFree < capacity_) {
        return;
    }
    const std::size_t wanted = capacity_ <= step ? capacity_ + step : 2 * capacity_;
    void* grown = std::realloc(block_.get(), wanted);
    if (grown == nullptr) {
        fatal_message(1, 0, "Cannot allocate memory");
        return;
    }
    (void)block_.release();
    block_.reset(static_cast<char*>(grown));
    capacity_ = wanted;
}

void OutputBuffer::readOnce(UniqueFd& end) {
    makeRoom();
    const ssize_t count = ::read(end.get(), block_.get() + length_, capacity_ - length_ - 1);
    if (count > 0) {
        length_ += static_cast<std::size_t>(count);
    } else if (count == 0) {
        end.close();
    } else if (errno != EAGAIN) {
        reportLine("fork_exec*: read(pipe) failed: %s\n", std::strerror(errno));
        end.close();
        errno = 0;
    }
}

char* OutputBuffer::release() {
    if (block_) {
        block_.get()[length_] = '\0';
    }
    length_ = 0;
    capacity_ = 0;
    return block_.release();
}

} // namespace quelm
