#include "commands/PhpVersion.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "lib/process/lib/Exceptions.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using quelm::test::readFile;
using quelm::test::TempDir;

std::vector<std::string> bannerFiles() {
    std::vector<std::string> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(TAMRIX_BANNERS)) {
        files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

class Banner : public testing::TestWithParam<std::string> {};

TEST_P(Banner, GivesItsVersion) {
    const std::string text = readFile(GetParam());
    const auto firstLine = text.find('\n');
    ASSERT_NE(firstLine, std::string::npos);
    const TempDir directory;
    directory.write("output", text.substr(firstLine + 1));
    const std::string php = directory.script("php", "cat " + directory.path("output"));
    EXPECT_EQ(quelm::getPhpVersion(php, ""), text.substr(0, firstLine));
}

std::string caseName(const testing::TestParamInfo<std::string>& file) {
    std::string name = fs::path(file.param).stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Data, Banner, testing::ValuesIn(bannerFiles()), caseName);

namespace fs = std::filesystem;
using quelm::getPhpVersion;
using quelm::QuelmUtilException;

class PhpVersion : public testing::Test {
protected:
    // The version that an interpreter of this output reports, or the failure's text.
    std::string probe(const std::string& body) { return probePath(directory_.script("php", body)); }
    std::string probeOutput(const std::string& output) {
        directory_.write("output", output);
        return probe("cat " + directory_.path("output"));
    }
    static std::string probePath(const std::string& path) {
        try {
            return getPhpVersion(path, "/no/php.ini");
        } catch (const QuelmUtilException& failure) {
            return failure.what();
        }
    }

    TempDir directory_;
};

TEST_F(PhpVersion, IsTheNumberOfTheBanner) {
    EXPECT_EQ(probeOutput("PHP 8.1.2 (cli) (built: Mar  3 2022 10:00:00) (NTS)\n"), "8.1.2");
    EXPECT_EQ(probeOutput("PHP 7.4.33-nmm1 (cgi-fcgi)\n"), "7.4.33");
}

TEST_F(PhpVersion, NeedsNoDots) {
    EXPECT_EQ(probeOutput("PHP 8 (cli)\n"), "8");
    EXPECT_EQ(probeOutput("PHP 8"), "8");
}

TEST_F(PhpVersion, LeavesATrailingDotToTheTail) {
    EXPECT_EQ(probeOutput("PHP 8.1.\n"), "8.1");
}

TEST_F(PhpVersion, IsThatOfTheFirstMatchingLine) {
    EXPECT_EQ(probeOutput("Warning: something\nPHP 8.1.2 (cli)\nPHP 9.9.9\n"), "8.1.2");
}

TEST_F(PhpVersion, NeedsNoFinalNewlineAndKeepsACarriageReturnOut) {
    EXPECT_EQ(probeOutput("x\nPHP 8.1.2"), "8.1.2");
    EXPECT_EQ(probeOutput("PHP 8.1.2\r\n"), "8.1.2");
}

TEST_F(PhpVersion, AnyOneBlankCharacterMayFollowTheName) {
    EXPECT_EQ(probeOutput("PHP\t5.2\n"), "5.2");
    EXPECT_EQ(probeOutput("PHP\r5.2\n"), "5.2");
    EXPECT_EQ(probeOutput("PHP\v5.2\n"), "5.2");
    EXPECT_EQ(probeOutput("PHP\f5.2\n"), "5.2");
    EXPECT_EQ(probeOutput("PHP  5.2\n"), "Unable to parse php version : PHP  5.2\n");
}

TEST_F(PhpVersion, AnythingMayFollowTheNumber) {
    EXPECT_EQ(probeOutput("PHP 5.2\xff\x80 x\n"), "5.2");
    EXPECT_EQ(probeOutput(std::string("PHP 5.2\0 x\n", 11)), "5.2");
}

TEST_F(PhpVersion, ALineThatStartsOtherwiseNeverMatches) {
    for (const std::string output :
         {" PHP 8.1.2\n", "php 8.1.2\n", "PHP8.1.2\n", "PHP v8\n", "Zend PHP 8\n"}) {
        EXPECT_EQ(probeOutput(output), "Unable to parse php version : " + output);
    }
}

TEST_F(PhpVersion, ABannerInsideALineIsNone) {
    // To the expression a line also begins behind a carriage return.
    EXPECT_EQ(probeOutput("Loading\rPHP 9.9 (x)\n"), "Unable to parse php version : Loading\rPHP 9.9 (x)\n");
}

TEST_F(PhpVersion, AnOutputWithoutABannerIsShownWhole) {
    EXPECT_EQ(probeOutput("one\ntwo\n"), "Unable to parse php version : one\ntwo\n");
    EXPECT_EQ(probeOutput(""), "Unable to parse php version : ");
}

TEST_F(PhpVersion, StandardErrorIsNeverLookedAt) {
    EXPECT_EQ(probe("echo PHP 9.9 >&2; echo PHP 8.1"), "8.1");
    EXPECT_EQ(probe("echo PHP 9.9 >&2"), "Unable to parse php version : ");
}

TEST_F(PhpVersion, AMatchingBannerDoesNotExcuseAFailedRun) {
    EXPECT_EQ(probe("echo PHP 8.1; exit 1"), "can not get version from " + directory_.path("php"));
    EXPECT_EQ(probe("echo PHP 8.1; kill -KILL $$"), "can not get version from " + directory_.path("php"));
}

TEST_F(PhpVersion, TheBinaryIsRunWithItsPathAndTwoOptionsAndAnEmptyInput) {
    EXPECT_EQ(probe("printf '%s\\n' \"$0\" \"$@\" >" + directory_.path("called") + "; cat; echo PHP 8"), "8");
    EXPECT_EQ(readFile(directory_.path("called")), directory_.path("php") + "\n-n\n-v\n");
}

TEST_F(PhpVersion, NothingAtThePathIsReportedWithoutARun) {
    const std::string path = directory_.path("none");
    EXPECT_EQ(probePath(path), "Binary " + path + " doesn't exists");
    EXPECT_EQ(probePath(""), "Binary  doesn't exists");
    directory_.write("file", "");
    EXPECT_EQ(probePath(directory_.path("file/below")),
              "Binary " + directory_.path("file/below") + " doesn't exists");
    fs::create_symlink("nowhere", directory_.path("dangling"));
    EXPECT_EQ(probePath(directory_.path("dangling")),
              "Binary " + directory_.path("dangling") + " doesn't exists");
}

TEST_F(PhpVersion, WhatExistsButCannotRunFailsInTheRun) {
    EXPECT_EQ(probePath(directory_.path()), "can not get version from " + directory_.path());
    const std::string plain = directory_.write("plain", "#!/bin/sh\necho PHP 8\n");
    EXPECT_EQ(probePath(plain), "can not get version from " + plain);
}

TEST_F(PhpVersion, AnEmptyExecutableRunsAndSaysNothing) {
    const std::string empty = directory_.write("empty", "");
    fs::permissions(empty, fs::perms::owner_all);
    EXPECT_EQ(probePath(empty), "Unable to parse php version : ");
}

TEST_F(PhpVersion, APathThatCannotBeExaminedIsTheFileSystemsOwnError) {
    fs::create_symlink("loop", directory_.path("loop"));
    EXPECT_THROW(getPhpVersion(directory_.path("loop"), ""), fs::filesystem_error);
    EXPECT_THROW(getPhpVersion(directory_.path(std::string(300, 'x')), ""), fs::filesystem_error);
}

TEST_F(PhpVersion, AChildThatCannotBeMadeIsTheSystemsOwnError) {
    const std::string php = directory_.script("php", "echo PHP 8");
    const quelm::test::FailedCall failing(quelm::test::Call::fork, EAGAIN);
    EXPECT_THROW(getPhpVersion(php, ""), quelm::ExSystemError<EAGAIN>);
}

TEST_F(PhpVersion, AnEnormousLineIsReadLikeAnyOther) {
    EXPECT_EQ(probe("printf 'PHP 8.1 '; head -c 10000000 /dev/zero | tr '\\0' x; echo"), "8.1");
}

TEST(VersionWarning, IsPrintedOnlyForDifferentTexts) {
    testing::internal::CaptureStderr();
    quelm::warnIfVersionsDiffer("8.1.2", "8.1.2");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    quelm::warnIfVersionsDiffer("8.1.2", "8.1.02");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 8.1.02\n");
}

} // namespace
