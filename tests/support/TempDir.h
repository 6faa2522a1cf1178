// A directory of a test's own: removed when the test passed, kept and named when it failed.
#pragma once

#include <filesystem>
#include <string>

namespace quelm::test {

class TempDir {
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    // The absolute path of `name` in the directory; without a name, the directory itself.
    std::string path(const std::string& name = {}) const;

    // Writes a file of the directory and returns its path.
    std::string write(const std::string& name, const std::string& text) const;
    // The same, executable: "#!/bin/sh\n" and the body.
    std::string script(const std::string& name, const std::string& body) const;

private:
    std::filesystem::path root_;
};

std::string readFile(const std::string& path);

} // namespace quelm::test
