#include "host/HookScripts.h"

#include <filesystem>
#include <set>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/ForkedResult.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using quelm::listHookScripts;
using quelm::test::TempDir;
using Names = std::vector<std::string>;

Names namesIn(const TempDir& directory) {
    Names names;
    for (const std::string& path : listHookScripts(directory.path() + "/")) {
        EXPECT_TRUE(path.starts_with(directory.path() + "/")) << path;
        names.push_back(path.substr(directory.path().size() + 1));
    }
    return names;
}

void makeWithMode(const TempDir& directory, const std::string& name, mode_t mode) {
    ASSERT_EQ(::chmod(directory.write(name, "").c_str(), mode), 0);
}

TEST(HookScripts, RunInPlainByteOrder) {
    const TempDir directory;
    for (const char* name : {"1", "10", "2", "9-a", "10-a", "b", "A", "\xc3\xa9", ".hidden"}) {
        makeWithMode(directory, name, 0700);
    }
    EXPECT_EQ(namesIn(directory), (Names{".hidden", "1", "10", "10-a", "2", "9-a", "A", "b", "\xc3\xa9"}));
}

TEST(HookScripts, OnlyTheOwnersExecuteBitCounts) {
    const TempDir directory;
    makeWithMode(directory, "group-and-others", 0677);
    makeWithMode(directory, "nobody", 0666);
    makeWithMode(directory, "owner", 0100);
    EXPECT_EQ(namesIn(directory), Names{"owner"});
}

TEST(HookScripts, ALinkCountsAsWhatItPointsToAndKeepsItsOwnPath) {
    const TempDir directory;
    const TempDir elsewhere;
    const std::string target = elsewhere.script("target", "");
    fs::create_symlink(target, directory.path("link"));
    EXPECT_EQ(namesIn(directory), Names{"link"});
}

TEST(HookScripts, EverythingElseIsPassedOverInSilence) {
    const TempDir directory;
    fs::create_directory(directory.path("directory"));
    fs::create_symlink("nowhere", directory.path("dangling"));
    fs::create_symlink("loop", directory.path("loop"));
    ASSERT_EQ(::mkfifo(directory.path("fifo").c_str(), 0700), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(namesIn(directory), Names{});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(HookScripts, SubdirectoriesAreNotEntered) {
    const TempDir directory;
    fs::create_directory(directory.path("sub"));
    makeWithMode(directory, "sub/script", 0700);
    EXPECT_EQ(namesIn(directory), Names{});
}

TEST(HookScripts, AMissingDirectoryThrowsTheFileSystemsError) {
    const TempDir directory;
    EXPECT_THROW(listHookScripts(directory.path("none/")), fs::filesystem_error);
    directory.write("file", "");
    EXPECT_THROW(listHookScripts(directory.path("file")), fs::filesystem_error);
}

// Root may read everything, so another user looks.
TEST(HookScripts, ADirectoryThatMayNotBeReadThrowsTheFileSystemsError) {
    const TempDir directory;
    fs::permissions(directory.path(), fs::perms::none);
    const quelm::test::ChildOutcome outcome = quelm::test::runForked([&directory] {
        if (::geteuid() == 0 && ::setuid(65534) != 0) {
            return 1;
        }
        try {
            listHookScripts(directory.path() + "/");
        } catch (const fs::filesystem_error& failure) {
            return failure.code() == std::errc::permission_denied ? 42 : 2;
        }
        return 3;
    });
    fs::permissions(directory.path(), fs::perms::owner_all);
    EXPECT_EQ(outcome.exitStatus(), 42);
}

} // namespace
