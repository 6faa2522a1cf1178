#include "commands/PhpVersion.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "lib/process/lib/Exceptions.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using quelm::test::readFile;
using quelm::test::TempDir;

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

struct Banner {
    std::string name;
    std::vector<std::string> kinds;
    std::string version;
    std::string text;
};

std::string replaced(std::string text, const std::string& mark, const std::string& with) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark)) {
        text.replace(at, mark.size(), with);
    }
    return text;
}

// Those of the file banners, which explains the format.
std::vector<Banner> banners() {
    std::vector<Banner> all;
    std::ifstream file(TAMRIX_BANNERS);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string word;
        if (line == "|...") {
            const std::string& before = all[all.size() - 2].text;
            const std::size_t lastLine = before.rfind('\n', before.size() - 2);
            all.back().text += before.substr(before.rfind('\n', lastLine - 1) + 1);
        } else if (line.starts_with("|")) {
            all.back().text += replaced(replaced(line, "<20>", " "), "<0D>", "\r").erase(0, 2) + "\n";
        } else if (!line.empty() && line.front() != '#') {
            words >> all.emplace_back().name >> word;
            while (words >> word && word != "|") {
                all.back().kinds.push_back(word);
            }
            words >> all.back().version;
        }
    }
    return all;
}

TEST_F(PhpVersion, IsReadFromEveryBannerOfTheFile) {
    int texts = 0;
    for (const Banner& banner : banners()) {
        for (const std::string& kind : banner.kinds) {
            EXPECT_EQ(probeOutput(replaced(banner.text, "*", kind)), banner.version) << banner.name;
            ++texts;
        }
    }
    EXPECT_EQ(texts, 22);
}

TEST_F(PhpVersion, IsTheNumberAtTheBeginningOfTheFirstMatchingLine) {
    for (const auto& [output, version] : {std::pair<std::string, std::string>{"PHP 8 (cli)\n", "8"},
                                          {"PHP 8", "8"},
                                          {"PHP 8.1.\n", "8.1"}, // a trailing dot belongs to the tail
                                          {"Warning: something\nPHP 8.1.2 (cli)\nPHP 9.9.9\n", "8.1.2"},
                                          {"x\nPHP 8.1.2", "8.1.2"},
                                          {"PHP\t5.2\n", "5.2"},
                                          {"PHP\r5.2\n", "5.2"},
                                          {"PHP\v5.2\n", "5.2"},
                                          {"PHP\f5.2\n", "5.2"},
                                          {"PHP 5.2\xff\x80 x\n", "5.2"},
                                          {std::string("PHP 5.2\0 x\n", 11), "5.2"}}) {
        EXPECT_EQ(probeOutput(output), version) << output;
    }
}

TEST_F(PhpVersion, AnOutputWithoutABannerLineIsShownWhole) {
    // To the expression a line also begins behind a carriage return.
    for (const std::string output : {"PHP  5.2\n", " PHP 8.1.2\n", "php 8.1.2\n", "PHP8.1.2\n", "PHP v8\n",
                                     "Zend PHP 8\n", "Loading\rPHP 9.9 (x)\n", "one\ntwo\n", ""}) {
        EXPECT_EQ(probeOutput(output), "Unable to parse php version : " + output);
    }
}

TEST_F(PhpVersion, StandardErrorIsNeverLookedAtAndAFailedRunIsNotExcused) {
    EXPECT_EQ(probe("echo PHP 9.9 >&2; echo PHP 8.1"), "8.1");
    EXPECT_EQ(probe("echo PHP 8.1; exit 1"), "can not get version from " + directory_.path("php"));
    EXPECT_EQ(probe("echo PHP 8.1; kill -KILL $$"), "can not get version from " + directory_.path("php"));
}

TEST_F(PhpVersion, TheBinaryIsRunWithItsPathAndTwoOptionsAndAnEmptyInput) {
    EXPECT_EQ(probe("printf '%s\\n' \"$0\" \"$@\" >" + directory_.path("called") + "; cat; echo PHP 8"), "8");
    EXPECT_EQ(readFile(directory_.path("called")), directory_.path("php") + "\n-n\n-v\n");
}

TEST_F(PhpVersion, WhatIsAtThePathDecidesTheFailure) {
    const auto fails = [](const std::string& path, const std::string& before, const std::string& behind) {
        EXPECT_EQ(probePath(path), before + path + behind);
    };
    fs::create_symlink("nowhere", directory_.path("dangling"));
    for (const std::string& path : {std::string(), directory_.path("none"), directory_.path("dangling"),
                                    directory_.write("plain", "#!/bin/sh\necho PHP 8\n") + "/below"}) {
        fails(path, "Binary ", " doesn't exists");
    }
    fails(directory_.path(), "can not get version from ", "");
    fails(directory_.path("plain"), "can not get version from ", "");
    fs::permissions(directory_.write("empty", ""), fs::perms::owner_all);
    EXPECT_EQ(probePath(directory_.path("empty")), "Unable to parse php version : ");
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
    const quelm::test::CapturedStreams captured;
    quelm::warnIfVersionsDiffer("8.1.2", "8.1.2");
    quelm::warnIfVersionsDiffer("8.1.2", "8.1.02");
    EXPECT_EQ(captured.error(), "[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 8.1.02\n");
}

} // namespace
