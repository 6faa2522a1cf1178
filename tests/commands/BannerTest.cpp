// One data file per banner: the first line is the expected version, the rest is what the interpreter printed.
#include <algorithm>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "commands/PhpVersion.h"
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

} // namespace
