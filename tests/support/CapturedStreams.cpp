#include "tests/support/CapturedStreams.h"

#include <array>
#include <cstdio>
#include <iostream>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quelm::test {

namespace {

void flushAll() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

int saveAside(int descriptor) {
    return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
}

void restore(int saved, int descriptor) {
    if (saved == -1) {
        ::close(descriptor);
        return;
    }
    ::dup2(saved, descriptor);
    ::close(saved);
}

std::string contentsOf(int descriptor) {
    flushAll();
    std::string text;
    std::array<char, 4096> part{};
    ssize_t count = 0;
    while ((count = ::pread(descriptor, part.data(), part.size(), static_cast<off_t>(text.size()))) > 0) {
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    return text;
}

} // namespace

CapturedStreams::CapturedStreams()
    : savedOutput_(saveAside(STDOUT_FILENO)), savedError_(saveAside(STDERR_FILENO)),
      output_(::memfd_create("output", MFD_CLOEXEC)), error_(::memfd_create("error", MFD_CLOEXEC)) {
    flushAll();
    ::dup2(output_, STDOUT_FILENO);
    ::dup2(error_, STDERR_FILENO);
}

CapturedStreams::~CapturedStreams() {
    flushAll();
    restore(savedOutput_, STDOUT_FILENO);
    restore(savedError_, STDERR_FILENO);
    ::close(output_);
    ::close(error_);
}

std::string CapturedStreams::output() const {
    return contentsOf(output_);
}

std::string CapturedStreams::error() const {
    return contentsOf(error_);
}

} // namespace quelm::test
