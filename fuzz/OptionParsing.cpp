// Any command line for each command that has options, against a model of what the options mean. The first
// line of the input names the command, each further line is a word.
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/CommandOptions.h"
#include "commands/Commands.h"
#include "fuzz/Fuzz.h"
#include "tests/registry/TestRegistry.h"

namespace quelm::fuzz {

namespace {

// `order` lists the options as the description does, which is the order in which an ambiguous word's matches
// are told; `required` is in the order in which missing ones are missed.
struct Command {
    std::string name;
    CommandOptions (*options)();
    std::string caption;
    std::vector<std::string> order;
    std::vector<std::string> required;
};

const std::vector<Command>& commands() {
    static const std::vector<std::string> common{"id",   "displayname",       "path",    "clipath", "phpini",
                                                 "type", "no-set-dirty-flag", "service", "poold"};
    static const std::vector<Command> all{
        {"add", addOptions, "Add handler options", common, {"phpini", "type"}},
        {"remove", removeOptions, "Remove handler options", {"id", "help", "no-set-dirty-flag"}, {"id"}},
        {"update", updateOptions, "Update handler options", common, {}},
        {"reread", rereadOptions, "Reread handlers options", {"no-set-dirty-flag"}, {}},
    };
    return all;
}

bool isFlag(const std::string& name) {
    return name == "help" || name == "no-set-dirty-flag";
}

// What a command line means, told without the option library.
struct Meaning {
    std::map<std::string, std::string> given; // the value is empty for a flag
    std::string failure;                      // empty when the line is accepted
};

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
    Line(const std::vector<std::string>& words, const Command& command) : words_(words), command_(command) {}

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
        for (const std::string& name : command_.required) {
            if (given.count(name) == 0) {
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
        const std::string name = findName(split, word, command_.order);
        const bool flag = isFlag(name);
        if (flag && split.value) {
            throw Failure{"option '--" + name + "' does not take any arguments"};
        }
        found_.emplace_back(name, flag ? "" : split.value ? *split.value : nextValue(name));
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
    const Command& command_;
    std::size_t next_ = 0;
    std::vector<std::pair<std::string, std::string>> found_;
};

Meaning meaningOf(const std::vector<std::string>& line, const Command& command) {
    try {
        return {Line(line, command).read(), ""};
    } catch (const Failure& failure) {
        return {{}, failure.text};
    }
}

void checkGiven(const CommandOptions& options, const Command& command, const Meaning& meaning) {
    for (const std::string& name : command.order) {
        const auto found = meaning.given.find(name);
        const bool given = found != meaning.given.end();
        if (name == "no-set-dirty-flag") {
            require(options.skipDirtyFlag() == given, "the switch is on when it is given");
            continue;
        }
        require(options.given(name.c_str()) == given, "what is given is known: " + name);
        if (given && !isFlag(name)) {
            require(options.text(name.c_str()) == found->second, "the value is the word: " + name);
        }
    }
}

void check(const Command& command, std::vector<std::string> line) {
    const Meaning meaning = meaningOf(line, command);
    line.insert(line.begin(), "--word");
    std::vector<char*> arguments;
    for (std::string& word : line) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    CommandOptions options = command.options();
    bool stepsRan = false;
    const test::CaughtErrors errors;
    const int status = options.run(static_cast<int>(line.size()), arguments.data(), [&] {
        stepsRan = true;
        require(meaning.failure.empty(), "this is refused: " + meaning.failure);
        checkGiven(options, command, meaning);
    });
    const std::string error = errors.text();
    require(status == (stepsRan ? 0 : 1), "the status is 0 when the steps ran, else 1");
    if (stepsRan) {
        require(error.empty(), "an accepted line prints nothing");
    } else {
        // The library fills its placeholders in wherever they stand in the user's word.
        const bool exact = meaning.failure.find('%') == std::string::npos;
        const std::string text = "[Error] " + (exact ? meaning.failure + "\n\n" : "");
        const std::string description = "\n\n" + command.caption + ":\n  --";
        require(error.starts_with(text) && error.find(description) != std::string::npos &&
                    error.ends_with("\n\n"),
                "refused with \"" + text + "\" and the description, not \"" + error + "\"");
    }
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quelm::fuzz;
    std::string text = textOf(data, size);
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end()); // no argument can hold one
    std::vector<std::string> line = linesOf(text);
    for (const Command& command : commands()) {
        if (!line.empty() && line.front() == command.name) {
            line.erase(line.begin());
            check(command, line);
            break;
        }
    }
    return 0;
}
