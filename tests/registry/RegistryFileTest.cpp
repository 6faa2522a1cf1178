// Loading and saving: paths of every kind, failing calls, and what survives the way there and back.
#include "registry/RegistryFile.h"

#include <algorithm>
#include <new>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/File.h"
#include "base/Log.h"
#include "base/QuelmUtilException.h"
#include "registry/RegistryWriter.h"
#include "tests/registry/TestRegistry.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm {

namespace {

using test::Call;
using test::FailedCall;
using test::fpmHandler;
using test::handlerWithId;
using test::registryOf;

const std::string document =
    "{\"php\":[\n{\n\t\"id\":\"a\",\n\t\"path\":\"p\",\n\t\"clipath\":\"c\",\n\t\"phpini\":\"i\",\n"
    "\t\"version\":\"v\",\n\t\"displayname\":\"d\",\n\t\"type\":\"cgi\",\n\t\"system\":false\n}\n]}\n";

class RegistryFile : public testing::Test {
protected:
    RegistryFile() { log_init("stderr", LOG_INFO, LOG_USER, 0, nullptr); }
    ~RegistryFile() override {
        test::conditions().longestTransfer = 0;
        test::conditions().nonBlockingOpenError = 0;
        log_init("none", LOG_INFO, LOG_USER, 0, nullptr);
        EXPECT_EQ(test::openDescriptors(), descriptors_);
    }

    // The ids of the records, the registry having held another before; what is logged goes to logged_.
    std::string loaded(const std::string& path) {
        HandlerRegistry registry = registryOf({handlerWithId("stale")});
        testing::internal::CaptureStderr();
        load(registry, path);
        logged_ = testing::internal::GetCapturedStderr();
        return test::idsOf(registry);
    }
    std::string loaded() { return loaded(path_); }

    // Saves one record and returns what is logged.
    std::string saved(const std::string& path) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        save(registryOf({handlerWithId("a")}), path);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        return testing::internal::GetCapturedStderr();
    }
    std::string saved() { return saved(path_); }

    HandlerRegistry savedAndLoaded(const PhpHandler& handler) {
        save(registryOf({handler}), path_);
        HandlerRegistry registry;
        load(registry, path_);
        return registry;
    }

    const std::vector<int> descriptors_ = test::openDescriptors();
    const test::TempDir directory_;
    const std::string path_ = directory_.write("registry.json", document);
    std::string logged_;
};

} // namespace

TEST_F(RegistryFile, ReplacesWhatTheRegistryHeldAlsoByNothing) {
    ASSERT_EQ(::symlink("registry.json", directory_.path("link").c_str()), 0);
    for (const auto& [path, ids] : {std::pair{path_, "a"},
                                    {directory_.path("link"), "a"},
                                    {directory_.path("missing"), ""},
                                    {directory_.path("missing/below"), ""},
                                    {std::string(), ""},
                                    {directory_.write("empty", ""), ""}}) {
        EXPECT_EQ(loaded(path), ids) << path;
        EXPECT_EQ(logged_, "");
    }
}

TEST_F(RegistryFile, WhatCannotBeReadIsEmptyAndLogged) {
    ASSERT_EQ(::symlink("loop", directory_.path("loop").c_str()), 0);
    ASSERT_EQ(::mkfifo(directory_.path("fifo").c_str(), 0600), 0);
    const UniqueFd writer(::open(directory_.path("fifo").c_str(), O_RDWR | O_CLOEXEC));
    for (const auto& [path, reason] : {std::pair{directory_.path(), "not a regular file"},
                                       {directory_.path("fifo"), "not a regular file"},
                                       {std::string("/dev/zero"), "not a regular file"},
                                       {directory_.path("loop"), "Too many levels of symbolic links"},
                                       {path_ + "/below", "Not a directory"},
                                       {std::string(5000, 'x'), "File name too long"},
                                       // Opens as a regular file, and every read at its beginning fails.
                                       {std::string("/proc/self/mem"), "Input/output error"}}) {
        EXPECT_EQ(loaded(path), "") << path;
        EXPECT_EQ(logged_, "Unable to read " + path + ": " + reason + "\n");
    }
    {
        const FailedCall refused(Call::open, EACCES);
        EXPECT_EQ(loaded(), "");
        EXPECT_EQ(test::callsOf(Call::open), 1);
    }
    EXPECT_EQ(logged_, "Unable to read " + path_ + ": Permission denied\n");
}

TEST_F(RegistryFile, OneThatGrowsWhileItIsOpenIsReadToItsNewEnd) {
    directory_.write("registry.json", document.substr(0, 20));
    test::watchCall(Call::read, [&] {
        directory_.write("registry.json", document);
        test::watchCall(Call::read, {});
    });
    EXPECT_EQ(loaded(), "a");
}

TEST_F(RegistryFile, ShortAndInterruptedTransfersAddUpAndAFailedReadMakesItEmpty) {
    test::conditions().longestTransfer = 7;
    const FailedCall reads(Call::read, EINTR, {.skip = 1, .times = 2});
    EXPECT_EQ(loaded(), "a");
    const FailedCall writes(Call::write, EINTR, {.skip = 1, .times = 2});
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(test::readFile(path_), document);
    const FailedCall failing(Call::read, EIO, {.skip = 1});
    EXPECT_EQ(loaded(), "");
    EXPECT_EQ(logged_, "Unable to read " + path_ + ": Input/output error\n");
}

// No child inherits the file, no terminal in its place becomes ours, no FIFO holds us up.
TEST_F(RegistryFile, IsOpenedForThisProcessAlone) {
    test::conditions().openFlags.clear();
    EXPECT_EQ(loaded(), "a");
    EXPECT_EQ(test::conditions().openFlags, std::vector<int>{O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK});
    test::conditions().openFlags.clear();
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(test::conditions().openFlags,
              std::vector<int>{O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK});
}

TEST_F(RegistryFile, ALeaseOnTheFileIsWaitedFor) {
    test::conditions().openFlags.clear();
    test::conditions().nonBlockingOpenError = EWOULDBLOCK;
    EXPECT_EQ(loaded(), "a");
    EXPECT_EQ(test::conditions().openFlags.back(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    directory_.write("registry.json", "old");
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(test::readFile(path_), document);
}

// Memory for the text, for the parser's state, for its handlers, for the records.
TEST_F(RegistryFile, MemoryThatRunsOutAnywhereInALoadEmptiesTheRegistry) {
    HandlerRegistry many;
    for (int number = 10; number < 50; ++number) {
        PhpHandler handler = handlerWithId(std::to_string(number));
        handler.path = handler.version = handler.phpini = std::string(40, 'x');
        many.append(handler);
    }
    save(many, path_);
    std::vector<std::string> failures;
    for (int granted = 0;; ++granted) {
        HandlerRegistry registry = registryOf({handlerWithId("stale")});
        try {
            const test::LimitedNew memory(granted, 1);
            load(registry, path_);
        } catch (const std::exception& failure) {
            failures.push_back(failure.what());
            EXPECT_TRUE(registry.empty());
            continue;
        }
        EXPECT_EQ(registry.size(), 40u);
        break;
    }
    const auto mentions = [&](const std::string& text) {
        return std::any_of(failures.begin(), failures.end(), [&](const std::string& failure) {
            return failure.find(text) != std::string::npos;
        });
    };
    EXPECT_GT(failures.size(), 100u);
    EXPECT_TRUE(mentions("Error reading " + path_ + ": can not create php_versions_info object"));
    EXPECT_TRUE(mentions("php_versions_info object : Failed to allocate memory. Error occured at offset"));
    EXPECT_TRUE(mentions("std::bad_alloc"));
    const FailedCall noText(Call::realloc, ENOMEM);
    HandlerRegistry registry;
    EXPECT_THROW(load(registry, path_), std::bad_alloc);
}

TEST_F(RegistryFile, OtherExceptionsPassUnchangedAndEmptyTheRegistry) {
    struct Throwing : std::streambuf {
        std::streamsize xsputn(const char*, std::streamsize) override { throw 42; }
    } throwing;
    save(test::registryWithIds("aa"), path_);
    HandlerRegistry registry = registryOf({handlerWithId("stale")});
    std::streambuf* const before = std::cerr.rdbuf(&throwing);
    std::cerr.exceptions(std::ios::badbit);
    EXPECT_THROW(load(registry, path_), int);
    std::cerr.exceptions(std::ios::goodbit);
    std::cerr.rdbuf(before);
    std::cerr.clear();
    EXPECT_TRUE(registry.empty());
}

TEST_F(RegistryFile, ManyRecordsWithManyDuplicatesLoadQuickly) {
    HandlerRegistry many;
    for (int number = 0; number < 50000; ++number) {
        many.append(handlerWithId(std::to_string(number % 49990)));
    }
    save(many, path_);
    const test::CaughtErrors errors;
    HandlerRegistry registry;
    load(registry, path_);
    EXPECT_EQ(registry.size(), 49990u);
    std::string expected;
    for (int number = 0; number < 10; ++number) {
        expected +=
            "[Warning] conflicting handler with id `" + std::to_string(number) + "' found. Ignoring\n";
    }
    EXPECT_EQ(errors.text(), expected);
}

TEST_F(RegistryFile, ASnapshotOutlivesItsFileAndMoves) {
    RegistrySnapshot snapshot(path_);
    directory_.write("registry.json", "gone");
    const RegistrySnapshot moved = std::move(snapshot);
    EXPECT_EQ(moved.handlers().at(0).record(), handlerWithId("a"));
}

TEST_F(RegistryFile, IsOverwrittenInPlace) {
    directory_.write("registry.json", std::string(10000, 'x'));
    ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
    ASSERT_EQ(::link(path_.c_str(), directory_.path("other").c_str()), 0);
    test::countCalls(Call::write);
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(test::callsOf(Call::write), 1);
    EXPECT_EQ(test::readFile(directory_.path("other")), document);
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(RegistryFile, ANewFileGetsTheDefaultMode) {
    for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{027, 0640}, {0, 0666}}) {
        const std::string path = directory_.path("new" + std::to_string(mode));
        const mode_t before = ::umask(mask);
        saved(path);
        ::umask(before);
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, mode);
    }
}

TEST_F(RegistryFile, AFailedSaveIsLoggedAndSilent) {
    ASSERT_EQ(::mkfifo(directory_.path("fifo").c_str(), 0600), 0);
    for (const auto& [path, reason] : {std::pair{directory_.path(), "Is a directory"},
                                       {directory_.path("none/f"), "No such file or directory"},
                                       {directory_.path("fifo"), "No such device or address"}}) {
        EXPECT_EQ(saved(path), "Unable to open " + path + ": " + reason + "\n");
    }
    EXPECT_EQ(saved("/dev/full"), "Unable to write /dev/full: No space left on device\n");
    const FailedCall failing(Call::close, EIO);
    EXPECT_EQ(saved(), "Unable to close " + path_ + ": Input/output error\n");
}

TEST_F(RegistryFile, ARecordThatCannotBeWrittenLeavesTheFileAlone) {
    PhpHandler handler = handlerWithId("b");
    handler.type = static_cast<PhpHandlerType>(4);
    EXPECT_THROW(save(registryOf({handler}), path_), std::runtime_error);
    EXPECT_EQ(test::readFile(path_), document);
}

TEST_F(RegistryFile, PrintableBytesTabAndLineEndsComeBack) {
    PhpHandler handler = fpmHandler();
    std::string printable = "\t\n\r\b\f";
    for (int byte = 0x20; byte < 256; ++byte) {
        printable += static_cast<char>(byte);
    }
    for (std::string* field : {&handler.id, &handler.displayname, &handler.path, &handler.clipath,
                               &handler.version, &handler.phpini, &handler.service, &handler.poold}) {
        *field = printable;
    }
    for (int byte = 0; byte < 0x20; ++byte) {
        handler.displayname += static_cast<char>(byte);
    }
    EXPECT_EQ(savedAndLoaded(handler)[0], handler);
}

} // namespace quelm
