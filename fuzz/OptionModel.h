// What a command line means to a changing command, told without the option library.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quelm::fuzz {

enum class OptionKind { flag, text, requiredText };

using OptionSet = std::map<std::string, OptionKind>;

struct Meaning {
    std::map<std::string, std::string> given; // the value is empty for a flag
    std::string failure;                      // empty when the line is accepted
};

// `set` in the order of its names, which is also the order in which missing ones are missed; `order` lists
// the names as the description does, which is the order in which an ambiguous word's matches are told.
Meaning meaningOf(const std::vector<std::string>& line, const OptionSet& set,
                  const std::vector<std::string>& order);

} // namespace quelm::fuzz
