// Runs a target over files, for builds without libFuzzer: every file that is given or lies in a folder that
// is given, in byte order of the names. A broken claim ends the process by a signal.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/Target.h"
#include "tests/registry/TestRegistry.h"

namespace quelm::fuzz {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> filesIn(const fs::path& place) {
    std::vector<std::string> files;
    if (!fs::is_directory(place)) {
        return {place.string()};
    }
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// False when there is no file, so that a folder that was moved does not pass unseen.
bool replay(const fs::path& place) {
    const std::vector<std::string> files = filesIn(place);
    for (const std::string& file : files) {
        std::printf("%s\n", file.c_str());
        std::fflush(stdout); // the last name is the culprit's
        const std::string text = test::readFile(file);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }
    return !files.empty();
}

} // namespace

} // namespace quelm::fuzz

int main(int argc, char** argv) {
    bool complete = argc > 1;
    try {
        for (int place = 1; place < argc; ++place) {
            complete = quelm::fuzz::replay(argv[place]) && complete;
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    if (!complete) {
        std::fprintf(stderr, "nothing to replay\n");
    }
    return complete ? 0 : 1;
}
