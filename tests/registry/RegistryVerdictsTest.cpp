// Runs the documents in verdicts/; the page there tells what they are.
#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

namespace fs = std::filesystem;

// Every document, and every verdict whose document is missing, without the extension.
std::vector<fs::path> documents() {
    std::set<fs::path> found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(TAMRIX_REGISTRY_VERDICTS)) {
        if (entry.is_regular_file() && entry.path().extension() != ".md") {
            found.insert(fs::path(entry.path()).replace_extension());
        }
    }
    return {found.begin(), found.end()};
}

std::string verdictOn(const std::string& path) {
    HandlerRegistry registry = test::registryOf({test::handlerWithId("stale")});
    const test::CaughtErrors errors;
    std::string verdict = "accepted";
    errno = 2; // what an earlier step left must not reach the report
    try {
        load(registry, path);
    } catch (const QuelmUtilException& failure) {
        const std::string prefix = "Error reading " + path + ": ";
        verdict = failure.what();
        EXPECT_EQ(verdict.substr(0, prefix.size()), prefix);
        verdict.erase(0, prefix.size());
    }
    EXPECT_TRUE(registry.empty());
    EXPECT_EQ(errors.text(), "");
    return verdict;
}

class RegistryVerdict : public testing::TestWithParam<fs::path> {
protected:
    std::string file(const char* extension) const { return GetParam().string() + extension; }
};

} // namespace

TEST_P(RegistryVerdict, IsAsItsFileTells) {
    const test::ScratchDirectory scratch;
    const std::string wrapped = scratch / "registry.json";
    test::writeFile(wrapped, "{\"dropped\":" + test::readFile(file(".json")) + ",\"php\":[]}");
    EXPECT_EQ("dropped: " + verdictOn(wrapped) + "\nalone: " + verdictOn(file(".json")) + "\n",
              test::readFile(file(".verdict")));
}

// Raised when documents are added, so that none is lost unnoticed.
TEST(RegistryVerdicts, NoneIsLost) {
    const auto count = [](const std::string& kind) {
        std::size_t found = 0;
        for (const fs::path& document : documents()) {
            found += document.parent_path().filename() == kind ? 1U : 0U;
        }
        return found;
    };
    EXPECT_GE(count("accepted"), 97U);
    EXPECT_GE(count("open"), 35U);
    EXPECT_GE(count("refused"), 242U);
}

INSTANTIATE_TEST_SUITE_P(Documents, RegistryVerdict, testing::ValuesIn(documents()), [](const auto& tested) {
    return tested.param.parent_path().filename().string() + "_" + tested.param.filename().string();
});

} // namespace quelm
