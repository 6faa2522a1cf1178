#include "tests/support/TempDir.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <gtest/gtest.h>

namespace quelm::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "tamrix-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    root_ = pattern;
}

TempDir::~TempDir() {
    if (testing::Test::HasFailure()) {
        std::cerr << "kept: " << root_.string() << std::endl;
        return;
    }
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

std::string TempDir::path(const std::string& name) const {
    return name.empty() ? root_.string() : (root_ / name).string();
}

std::string TempDir::write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
}

std::string TempDir::script(const std::string& name, const std::string& body) const {
    write(name, "#!/bin/sh\n" + body);
    fs::permissions(path(name), fs::perms::owner_all);
    return path(name);
}

std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

} // namespace quelm::test
