#include "fuzz/OptionModel.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

namespace quelm::fuzz {

namespace {

struct Failure {
    std::string text;
};

bool isLong(const std::string& word) {
    return word.size() > 2 && word.starts_with("--");
}

bool isShort(const std::string& word) {
    return word.size() > 1 && word[0] == '-' && word[1] != '-';
}

// A word as an option: its name and what stands behind the equals sign.
struct LongWord {
    std::string name;
    std::optional<std::string> value;
};

// The option in a message about an empty value: dashes and slashes before the name are cut, unless there is
// nothing else; an empty name is left out with its quotes.
std::string shownOption(const std::string& name) {
    if (name.empty()) {
        return "option";
    }
    const std::size_t start = name.find_first_not_of("-/");
    return "option '--" + (start == std::string::npos ? name : name.substr(start)) + "'";
}

Failure emptyValue(const std::string& name) {
    return {"the argument for " + shownOption(name) + " should follow immediately after the equal sign"};
}

LongWord splitLong(const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
        return {word.substr(2), std::nullopt};
    }
    LongWord split{word.substr(2, equals - 2), word.substr(equals + 1)};
    if (split.value->empty()) {
        throw emptyValue(split.name);
    }
    return split;
}

std::string join(const std::vector<std::string>& matches) {
    std::string text;
    for (std::size_t match = 0; match < matches.size(); ++match) {
        text += match == 0 ? "" : match + 1 == matches.size() ? ", and " : ", ";
        text += "'--" + matches[match] + "'";
    }
    return text;
}

// The full name for a name or an unambiguous beginning of one.
std::string findName(const LongWord& split, const std::string& word, const std::vector<std::string>& order) {
    if (std::find(order.begin(), order.end(), split.name) != order.end()) {
        return split.name;
    }
    std::vector<std::string> matches;
    std::copy_if(order.begin(), order.end(), std::back_inserter(matches),
                 [&](const std::string& known) { return known.starts_with(split.name); });
    if (matches.empty()) {
        throw Failure{"unrecognised option '" + word + "'"};
    }
    if (matches.size() > 1) {
        throw Failure{"option '" + word + "' is ambiguous and matches " + join(matches)};
    }
    return matches.front();
}

class Line {
public:
    Line(const std::vector<std::string>& words, const OptionSet& set, const std::vector<std::string>& order)
        : words_(words), set_(set), order_(order) {}

    // Every word is looked at before anything counts as given.
    std::map<std::string, std::string> read() {
        while (next_ < words_.size() && words_[next_] != "--") {
            readWord(words_[next_++]);
        }
        std::map<std::string, std::string> given;
        for (const auto& [name, value] : found_) {
            if (!given.emplace(name, value).second) {
                throw Failure{"option '--" + name + "' cannot be specified more than once"};
            }
        }
        for (const auto& [name, kind] : set_) {
            if (kind == OptionKind::requiredText && given.count(name) == 0) {
                throw Failure{"the option '--" + name + "' is required but missing"};
            }
        }
        return given;
    }

private:
    void readWord(const std::string& word) {
        if (isShort(word)) {
            throw Failure{"unrecognised option '" + word + "'"};
        }
        if (!isLong(word)) {
            return; // a stray word
        }
        const LongWord split = splitLong(word);
        if (split.name.empty()) {
            return; // "--=value" counts as a stray word
        }
        const std::string name = findName(split, word, order_);
        const bool isFlag = set_.at(name) == OptionKind::flag;
        if (isFlag && split.value) {
            throw Failure{"option '--" + name + "' does not take any arguments"};
        }
        found_.emplace_back(name, isFlag ? "" : split.value ? *split.value : nextValue(name));
    }

    // Takes any word, also one that looks like an option; only its equals sign is looked at, and the option
    // whose value it is gets the blame.
    std::string nextValue(const std::string& name) {
        if (next_ == words_.size()) {
            throw Failure{"the required argument for option '--" + name + "' is missing"};
        }
        const std::string& word = words_[next_++];
        if (isLong(word) && word.find('=') == word.size() - 1) {
            throw emptyValue(name);
        }
        return word;
    }

    const std::vector<std::string>& words_;
    const OptionSet& set_;
    const std::vector<std::string>& order_;
    std::size_t next_ = 0;
    std::vector<std::pair<std::string, std::string>> found_;
};

} // namespace

Meaning meaningOf(const std::vector<std::string>& line, const OptionSet& set,
                  const std::vector<std::string>& order) {
    try {
        return {Line(line, set, order).read(), ""};
    } catch (const Failure& failure) {
        return {{}, failure.text};
    }
}

} // namespace quelm::fuzz
