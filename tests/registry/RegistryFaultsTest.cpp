// Loading, saving and digesting when the calls beneath them fail or do only a part.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/Log.h"
#include "registry/HandlerId.h"
#include "registry/RegistryFile.h"
#include "tests/support/TempDir.h"

namespace {

// What the wrapped calls do while `armed`.
struct Faults {
    bool armed = false;
    int newGrants = -1;          // of operator new; -1: as many as wanted
    std::vector<int> readErrors; // one per call, 0 for a real one
    std::string growth;          // what the first read finds behind the file's end
    std::size_t longestTransfer = 1000000;
    int interruptedWrites = 0;
    int closeError = 0;
    int openError = 0; // of a non-blocking open
    bool digestFails[3] = {false, false, false};
    int writes = 0;
    std::vector<int> openFlags;
} faults;

} // namespace

void* operator new(std::size_t size) {
    if (faults.newGrants == 0) {
        throw std::bad_alloc();
    }
    faults.newGrants -= faults.newGrants > 0 ? 1 : 0;
    void* const block = std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

extern "C" {
ssize_t __real_read(int descriptor, void* into, size_t count);
ssize_t __wrap_read(int descriptor, void* into, size_t count);
ssize_t __wrap_read(int descriptor, void* into, size_t count) {
    if (faults.armed && !faults.growth.empty()) {
        std::ofstream("/proc/self/fd/" + std::to_string(descriptor), std::ios::app) << faults.growth;
        faults.growth.clear();
    }
    if (faults.armed && !faults.readErrors.empty()) {
        const int error = faults.readErrors.front();
        faults.readErrors.erase(faults.readErrors.begin());
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    return __real_read(descriptor, into, faults.armed ? std::min(count, faults.longestTransfer) : count);
}

ssize_t __real_write(int descriptor, const void* from, size_t count);
ssize_t __wrap_write(int descriptor, const void* from, size_t count);
ssize_t __wrap_write(int descriptor, const void* from, size_t count) {
    if (!faults.armed) {
        return __real_write(descriptor, from, count);
    }
    ++faults.writes;
    if (faults.interruptedWrites > 0) {
        --faults.interruptedWrites;
        errno = EINTR;
        return -1;
    }
    return __real_write(descriptor, from, std::min(count, faults.longestTransfer));
}

int __real_close(int descriptor);
int __wrap_close(int descriptor);
int __wrap_close(int descriptor) {
    const int result = __real_close(descriptor);
    if (faults.armed && faults.closeError != 0) {
        errno = faults.closeError;
        return -1;
    }
    return result;
}

int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode) {
    if (faults.armed) {
        faults.openFlags.push_back(flags);
        if (faults.openError != 0 && (flags & O_NONBLOCK) != 0) {
            errno = faults.openError;
            return -1;
        }
    }
    return __real_open(path, flags, mode);
}

int __real_SHA1_Init(SHA_CTX* context);
int __wrap_SHA1_Init(SHA_CTX* context);
int __wrap_SHA1_Init(SHA_CTX* context) {
    return faults.digestFails[0] ? 0 : __real_SHA1_Init(context);
}
int __real_SHA1_Update(SHA_CTX* context, const void* data, size_t size);
int __wrap_SHA1_Update(SHA_CTX* context, const void* data, size_t size);
int __wrap_SHA1_Update(SHA_CTX* context, const void* data, size_t size) {
    return faults.digestFails[1] ? 0 : __real_SHA1_Update(context, data, size);
}
int __real_SHA1_Final(unsigned char* digest, SHA_CTX* context);
int __wrap_SHA1_Final(unsigned char* digest, SHA_CTX* context);
int __wrap_SHA1_Final(unsigned char* digest, SHA_CTX* context) {
    return faults.digestFails[2] ? 0 : __real_SHA1_Final(digest, context);
}
}

namespace {

using quelm::HandlerRegistry;
using quelm::PhpHandler;
using quelm::test::readFile;
using quelm::test::TempDir;

const std::string document =
    "{\"php\":[\n{\n\t\"id\":\"a\",\n\t\"path\":\"p\",\n\t\"clipath\":\"\",\n\t\"phpini\":\"i\",\n"
    "\t\"version\":\"v\",\n\t\"displayname\":\"d\",\n\t\"type\":\"cgi\",\n\t\"system\":false\n}\n]}\n";

class RegistryFaults : public testing::Test {
protected:
    RegistryFaults() { faults = Faults(); }
    ~RegistryFaults() override { faults = Faults(); }

    std::size_t loaded() {
        HandlerRegistry registry;
        faults.armed = true;
        load(registry, path_);
        faults.armed = false;
        return registry.size();
    }
    // Saves one record; returns what the log got.
    std::string saved() {
        PhpHandler handler;
        handler.id = "a";
        handler.path = "p";
        handler.phpini = "i";
        handler.version = "v";
        handler.displayname = "d";
        handler.type = quelm::PhpHandlerType::cgi;
        HandlerRegistry registry;
        add(registry, handler);
        quelm::log_init("stderr", LOG_INFO, LOG_USER, 0, nullptr);
        testing::internal::CaptureStderr();
        faults.armed = true;
        save(registry, path_);
        faults.armed = false;
        return testing::internal::GetCapturedStderr();
    }

    TempDir directory_;
    std::string path_ = directory_.write("registry.json", document);
};

TEST_F(RegistryFaults, AReadThatFailsAfterAPartMakesTheRegistryEmpty) {
    faults.longestTransfer = 10;
    faults.readErrors = {0, EIO};
    EXPECT_EQ(loaded(), 0u);
}

TEST_F(RegistryFaults, AnInterruptedReadIsRepeated) {
    faults.readErrors = {EINTR, 0, EINTR};
    EXPECT_EQ(loaded(), 1u);
}

TEST_F(RegistryFaults, ShortReadsAddUp) {
    faults.longestTransfer = 7;
    EXPECT_EQ(loaded(), 1u);
}

TEST_F(RegistryFaults, MemoryThatRunsOutAnywhereInALoadEmptiesTheRegistry) {
    const std::string member = std::string(40, 'x') + "\"";
    std::string many = "{\"php\":[";
    for (int number = 10; number < 50; ++number) {
        many += std::string(number == 10 ? "" : ",") + "{\"id\":\"" + std::to_string(number) +
                "\",\"path\":\"" + member + ",\"version\":\"" + member + ",\"displayname\":\"" + member +
                ",\"phpini\":\"" + member + ",\"type\":\"cgi\"}";
    }
    directory_.write("registry.json", many + "]}");
    HandlerRegistry registry;
    int failures = 0;
    for (bool complete = false; !complete;) {
        registry.append(PhpHandler());
        faults.newGrants = failures;
        try {
            load(registry, path_);
            complete = true;
        } catch (const std::bad_alloc&) {
            ++failures;
        }
        faults.newGrants = -1;
        ASSERT_EQ(registry.size(), complete ? 40u : 0u) << failures;
    }
    EXPECT_GT(failures, 100);
}

TEST_F(RegistryFaults, AFileThatGrowsWhenItIsOpenIsReadToItsNewEnd) {
    directory_.write("registry.json", document.substr(0, 20));
    faults.growth = document.substr(20);
    EXPECT_EQ(loaded(), 1u);
}

// No child inherits the file, no terminal in its place becomes ours, no FIFO holds us up.
TEST_F(RegistryFaults, TheFileIsOpenedForThisProcessAlone) {
    EXPECT_EQ(loaded(), 1u);
    EXPECT_EQ(faults.openFlags, std::vector<int>{O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK});
    faults.openFlags.clear();
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(faults.openFlags,
              std::vector<int>{O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK});
}

TEST_F(RegistryFaults, ALeaseOnTheFileIsWaitedForWhenLoading) {
    faults.openError = EWOULDBLOCK;
    EXPECT_EQ(loaded(), 1u);
    ASSERT_EQ(faults.openFlags.size(), 2u);
    EXPECT_EQ(faults.openFlags[1], faults.openFlags[0] & ~O_NONBLOCK);
}

TEST_F(RegistryFaults, ALeaseOnTheFileIsWaitedForWhenSaving) {
    directory_.write("registry.json", "old");
    faults.openError = EWOULDBLOCK;
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(readFile(path_), document);
}

TEST_F(RegistryFaults, AnyOtherFailedOpenIsNotRepeated) {
    faults.openError = EACCES;
    EXPECT_EQ(loaded(), 0u);
    EXPECT_EQ(faults.openFlags.size(), 1u);
}

TEST_F(RegistryFaults, TheDocumentLeavesInOneWrite) {
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(faults.writes, 1);
    EXPECT_EQ(readFile(path_), document);
}

TEST_F(RegistryFaults, ShortAndInterruptedWritesGoOn) {
    faults.longestTransfer = 7;
    faults.interruptedWrites = 2;
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(readFile(path_), document);
}

TEST_F(RegistryFaults, AFailedCloseIsLogged) {
    faults.closeError = EIO;
    EXPECT_EQ(saved(), "Unable to close " + path_ + ": Input/output error\n");
}

TEST_F(RegistryFaults, AFailedDigestIsAnErrorAndLeavesTheIdAlone) {
    for (bool& fails : faults.digestFails) {
        fails = true;
        PhpHandler handler;
        handler.id = "before";
        try {
            computeHandlerId(handler);
            ADD_FAILURE();
        } catch (const std::runtime_error& failure) {
            EXPECT_STREQ(failure.what(), "Unable to compute php handler id");
        }
        EXPECT_EQ(handler.id, "before");
        fails = false;
    }
}

} // namespace
