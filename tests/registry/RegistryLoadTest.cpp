// load() on paths of every kind; what it makes of a text stands in cases/.
#include "registry/RegistryFile.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

const std::string valid =
    R"({"php":[{"id":"a","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"}]})";

// The number of records, the registry having held one before.
std::size_t sizeAfterLoading(const std::string& path) {
    HandlerRegistry registry = test::registryOf({test::handlerWithId("stale")});
    load(registry, path);
    return registry.size();
}

constexpr uid_t nobody = 65534;

// 0 when loading as an ordinary user gives an empty registry. Runs in a child: the user cannot be changed
// back.
int loadAsOrdinaryUser(const std::string& path) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 && ::setresuid(nobody, nobody, nobody) != 0) {
            ::_exit(2);
        }
        const int descriptor = ::open(path.c_str(), O_RDONLY);
        if (descriptor >= 0 || errno != EACCES) {
            ::_exit(3);
        }
        ::_exit(sizeAfterLoading(path) == 0 ? 0 : 4);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Standard error that fails in a way of its own.
class ThrowingErrors : public std::streambuf {
public:
    ThrowingErrors() : before_(std::cerr.rdbuf(this)) { std::cerr.exceptions(std::ios::badbit); }
    ThrowingErrors(const ThrowingErrors&) = delete;
    ThrowingErrors& operator=(const ThrowingErrors&) = delete;
    ~ThrowingErrors() override {
        std::cerr.exceptions(std::ios::goodbit);
        std::cerr.rdbuf(before_);
        std::cerr.clear();
    }

protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize /*length*/) override { throw 42; }

private:
    std::streambuf* before_;
};

} // namespace

TEST(RegistryLoad, ReplacesWhatWasThere) {
    const test::ScratchDirectory directory;
    test::writeFile(directory / "f", valid);
    EXPECT_EQ(sizeAfterLoading(directory / "f"), 1U);
}

TEST(RegistryLoad, MissingFileIsEmpty) {
    const test::ScratchDirectory directory;
    EXPECT_EQ(sizeAfterLoading(directory / "missing"), 0U);
    EXPECT_EQ(sizeAfterLoading(directory / "missing/below"), 0U);
    EXPECT_EQ(sizeAfterLoading(""), 0U);
}

TEST(RegistryLoad, FileWithoutTextIsEmpty) {
    const test::ScratchDirectory directory;
    test::writeFile(directory / "f", "");
    EXPECT_EQ(sizeAfterLoading(directory / "f"), 0U);
}

TEST(RegistryLoad, DirectoryIsEmpty) {
    const test::ScratchDirectory directory;
    EXPECT_EQ(sizeAfterLoading(directory.path().string()), 0U);
}

TEST(RegistryLoad, PathThatCannotBeFollowedIsEmpty) {
    const test::ScratchDirectory directory;
    ASSERT_EQ(::symlink("loop", (directory / "loop").c_str()), 0);
    EXPECT_EQ(sizeAfterLoading(directory / "loop"), 0U);
    test::writeFile(directory / "f", valid);
    EXPECT_EQ(sizeAfterLoading(directory / "f/below"), 0U);
    EXPECT_EQ(sizeAfterLoading(std::string(5000, 'x')), 0U);
}

TEST(RegistryLoad, FileThatMayNotBeOpenedIsEmpty) {
    const test::ScratchDirectory directory;
    ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
    test::writeFile(directory / "f", valid);
    ASSERT_EQ(::chmod((directory / "f").c_str(), 0), 0);
    EXPECT_EQ(loadAsOrdinaryUser(directory / "f"), 0);
}

// Opens as a regular file, and every read at its beginning fails.
TEST(RegistryLoad, FileThatFailsWhileBeingReadIsEmpty) {
    const int descriptor = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    char byte;
    ASSERT_EQ(::read(descriptor, &byte, 1), -1);
    ASSERT_EQ(::close(descriptor), 0);
    EXPECT_EQ(sizeAfterLoading("/proc/self/mem"), 0U);
}

TEST(RegistryLoad, FifoIsEmptyAndDoesNotHang) {
    const test::ScratchDirectory directory;
    ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(sizeAfterLoading(directory / "fifo"), 0U);
    const int writer = ::open((directory / "fifo").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    EXPECT_EQ(sizeAfterLoading(directory / "fifo"), 0U);
    ASSERT_EQ(::close(writer), 0);
}

TEST(RegistryLoad, EndlessDeviceIsEmptyAndDoesNotHang) {
    EXPECT_EQ(sizeAfterLoading("/dev/zero"), 0U);
}

TEST(RegistryLoad, SymbolicLinkIsFollowed) {
    const test::ScratchDirectory directory;
    test::writeFile(directory / "f", valid);
    ASSERT_EQ(::symlink("f", (directory / "link").c_str()), 0);
    EXPECT_EQ(sizeAfterLoading(directory / "link"), 1U);
}

// Its size reads 0, so the text has to be read to the end all the same.
TEST(RegistryLoad, FileThatHidesItsSizeIsReadToItsEnd) {
    try {
        sizeAfterLoading("/proc/self/status");
        ADD_FAILURE() << "taken for empty";
    } catch (const QuelmUtilException& failure) {
        EXPECT_STREQ(failure.what(),
                     "Error reading /proc/self/status: can not parse php_versions_info object "
                     ": JSON object is expected. Error occured at offset 0, character 'N'. ");
    }
}

TEST(RegistryLoad, OtherExceptionsPassUnchangedAndEmptyTheRegistry) {
    const test::ScratchDirectory directory;
    const std::string record = valid.substr(8, valid.size() - 10);
    test::writeFile(directory / "f", "{\"php\":[" + record + "," + record + "]}");
    HandlerRegistry registry;
    const ThrowingErrors errors;
    EXPECT_THROW(load(registry, directory / "f"), int);
    EXPECT_TRUE(registry.empty());
}

TEST(RegistryLoad, LeavesNoDescriptorOpen) {
    const test::ScratchDirectory directory;
    test::writeFile(directory / "good", valid);
    test::writeFile(directory / "bad", "{");
    const int before = ::dup(0);
    ASSERT_EQ(::close(before), 0);
    sizeAfterLoading(directory / "good");
    EXPECT_THROW(sizeAfterLoading(directory / "bad"), QuelmUtilException);
    sizeAfterLoading("/proc/self/mem");
    const int after = ::dup(0);
    ASSERT_EQ(::close(after), 0);
    EXPECT_EQ(before, after);
}

TEST(RegistryLoad, ManyRecordsWithManyDuplicatesLoadQuickly) {
    const test::ScratchDirectory directory;
    std::string text = R"({"php":[)";
    for (int i = 0; i < 50000; ++i) {
        text += R"({"id":")" + std::to_string(i % 49990) +
                R"(","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"},)";
    }
    text.back() = ']';
    test::writeFile(directory / "f", text + "}");
    const test::CaughtErrors errors;
    EXPECT_EQ(sizeAfterLoading(directory / "f"), 49990U);
    const std::string warnings = errors.text();
    EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 10);
}

} // namespace quelm
