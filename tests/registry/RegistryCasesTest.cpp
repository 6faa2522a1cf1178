// Runs the documents in cases/; the page there tells what a case is made of.
#include <cerrno>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

namespace fs = std::filesystem;

const fs::path casesDirectory = TAMRIX_REGISTRY_CASES;

std::vector<std::string> caseNames() {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(casesDirectory)) {
        if (entry.path().extension() != ".md") {
            names.insert(entry.path().stem().string());
        }
    }
    return {names.begin(), names.end()};
}

void appendByte(std::string& text, unsigned char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    const bool shown = byte >= 0x20 && byte <= 0x7e && byte != '\\';
    if (shown) {
        text += static_cast<char>(byte);
    } else {
        text += {'\\', 'x', digits[byte >> 4], digits[byte & 0x0fU]};
    }
}

void appendField(std::string& text, const std::string& name, const std::string& value) {
    if (value.empty()) {
        return;
    }
    text += name + "=";
    for (const char c : value) {
        appendByte(text, static_cast<unsigned char>(c));
    }
    text += '\n';
}

std::string describe(const PhpHandler& handler) {
    std::string text = "record\n";
    appendField(text, "id", handler.id);
    appendField(text, "displayname", handler.displayname);
    appendField(text, "path", handler.path);
    appendField(text, "clipath", handler.clipath);
    appendField(text, "version", handler.version);
    appendField(text, "phpini", handler.phpini);
    appendField(text, "service", handler.service);
    appendField(text, "poold", handler.poold);
    appendField(text, "type", formatHandlerType(handler));
    return text + (handler.system ? "system=true\n" : "");
}

// The fields of a record may stand in any order in a case: each block of lines is sorted before comparing.
std::vector<std::multiset<std::string>> blocks(const std::string& text) {
    std::vector<std::multiset<std::string>> found(1);
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line == "record") {
            found.emplace_back();
        }
        found.back().insert(line);
    }
    return found;
}

std::string asWarnings(const std::string& errors) {
    std::string text;
    std::istringstream stream(errors);
    for (std::string line; std::getline(stream, line);) {
        text += "warning=" + line + "\n";
    }
    return text;
}

class RegistryCase : public testing::TestWithParam<std::string> {
protected:
    fs::path file(const char* extension) const { return casesDirectory / (GetParam() + extension); }
};

} // namespace

TEST_P(RegistryCase, IsReadAsItsFileTells) {
    ASSERT_NE(fs::exists(file(".report")), fs::exists(file(".records")));
    const std::string path = file(".json").string();
    ASSERT_TRUE(fs::exists(path));
    HandlerRegistry registry = test::registryOf({test::handlerWithId("stale")});
    const test::CaughtErrors errors;
    errno = 2; // what an earlier step left must not reach the report
    try {
        load(registry, path);
        std::string found = asWarnings(errors.text());
        for (const PhpHandler& handler : registry) {
            found += describe(handler);
        }
        ASSERT_TRUE(fs::exists(file(".records"))) << "accepted:\n" << found;
        EXPECT_EQ(blocks(found), blocks(test::readFile(file(".records"))));
    } catch (const QuelmUtilException& failure) {
        ASSERT_TRUE(fs::exists(file(".report"))) << failure.what();
        EXPECT_EQ(std::string(failure.what()) + "\n" + errors.text(),
                  "Error reading " + path + ": " + test::readFile(file(".report")));
        EXPECT_TRUE(registry.empty());
    }
}

// Raised when cases are added, so that none is lost unnoticed.
TEST(RegistryCases, NoneIsLost) {
    std::size_t accepted = 0;
    for (const std::string& name : caseNames()) {
        accepted += fs::exists(casesDirectory / (name + ".records")) ? 1U : 0U;
    }
    EXPECT_GE(accepted, 31U);
    EXPECT_GE(caseNames().size() - accepted, 135U);
}

INSTANTIATE_TEST_SUITE_P(Documents, RegistryCase, testing::ValuesIn(caseNames()),
                         [](const auto& tested) { return tested.param; });

} // namespace quelm
