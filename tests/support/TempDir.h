// A directory of a test's own: removed when the test passed, kept and named when it failed.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace quelm::test {

class TempDir {
public:
    TempDir() {
        root_ = (std::filesystem::temp_directory_path() / "tamrix-test-XXXXXX").string();
        if (::mkdtemp(root_.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        if (testing::Test::HasFailure()) {
            std::cerr << "kept: " << root_ << std::endl;
            return;
        }
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    // The absolute path of `name` in the directory; without a name, the directory itself.
    std::string path(const std::string& name = {}) const { return name.empty() ? root_ : root_ + "/" + name; }

    // Writes a file of the directory and returns its path.
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    // The same, executable: "#!/bin/sh\n" and the body.
    std::string script(const std::string& name, const std::string& body) const {
        write(name, "#!/bin/sh\n" + body);
        std::filesystem::permissions(path(name), std::filesystem::perms::owner_all);
        return path(name);
    }

private:
    std::string root_;
};

inline std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

} // namespace quelm::test
