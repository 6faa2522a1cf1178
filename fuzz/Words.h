// Words out of one input.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quelm::fuzz {

// Each `separator` ends a word, also at the end of the text; no word holds one.
inline std::vector<std::string> words(std::string_view text, char separator) {
    std::vector<std::string> found;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find(separator), text.size());
        found.emplace_back(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return found;
}

} // namespace quelm::fuzz
