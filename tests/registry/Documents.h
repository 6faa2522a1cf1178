// The documents of tests/registry/documents; handlers.txt there explains the format.
#pragma once

#include <string>
#include <vector>

namespace quelm::test {

struct Document {
    std::string name;
    std::vector<std::string> verdicts; // of values.txt two, of the others one
    std::string text;
    std::vector<std::string> records; // "FIELD=VALUE|...", escapes resolved
    std::string errors;               // what is printed on standard error
};

// Those of one file. Throws std::runtime_error for a line that is not understood.
std::vector<Document> documentsOf(const std::string& file);

} // namespace quelm::test
