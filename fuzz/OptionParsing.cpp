// Any command line for each command that has options, against a model of what the options mean. The first
// line of the input names the command, each further line is a word.
#include <algorithm>
#include <string>
#include <vector>

#include "commands/CommandOptions.h"
#include "commands/Commands.h"
#include "fuzz/Fuzz.h"
#include "fuzz/OptionModel.h"
#include "tests/registry/TestRegistry.h"

namespace quelm::fuzz {

namespace {

struct Command {
    std::string name;
    CommandOptions (*options)();
    std::string caption;
    std::vector<std::string> order;
    OptionSet set;
};

const std::vector<Command>& commands() {
    using enum OptionKind;
    static const std::vector<Command> all{
        {"add",
         addOptions,
         "Add handler options",
         {"id", "displayname", "path", "clipath", "phpini", "type", "no-set-dirty-flag", "service", "poold"},
         {{"id", text},
          {"displayname", text},
          {"path", text},
          {"clipath", text},
          {"phpini", requiredText},
          {"type", requiredText},
          {"no-set-dirty-flag", flag},
          {"service", text},
          {"poold", text}}},
        {"remove",
         removeOptions,
         "Remove handler options",
         {"id", "help", "no-set-dirty-flag"},
         {{"id", requiredText}, {"help", flag}, {"no-set-dirty-flag", flag}}},
        {"update",
         updateOptions,
         "Update handler options",
         {"id", "displayname", "path", "clipath", "phpini", "type", "no-set-dirty-flag", "service", "poold"},
         {{"id", text},
          {"displayname", text},
          {"path", text},
          {"clipath", text},
          {"phpini", text},
          {"type", text},
          {"no-set-dirty-flag", flag},
          {"service", text},
          {"poold", text}}},
        {"reread",
         rereadOptions,
         "Reread handlers options",
         {"no-set-dirty-flag"},
         {{"no-set-dirty-flag", flag}}},
    };
    return all;
}

std::vector<char*> argumentsOf(std::vector<std::string>& line) {
    std::vector<char*> arguments;
    for (std::string& word : line) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return arguments;
}

void checkGiven(const CommandOptions& options, const Command& command, const Meaning& meaning) {
    for (const auto& [name, kind] : command.set) {
        const auto found = meaning.given.find(name);
        const bool given = found != meaning.given.end();
        if (name == "no-set-dirty-flag") {
            require(options.skipDirtyFlag() == given, "the switch is on when it is given");
            continue;
        }
        require(options.given(name.c_str()) == given, "what is given is known: " + name);
        if (given && kind != OptionKind::flag) {
            require(options.text(name.c_str()) == found->second, "the value is the word: " + name);
        }
    }
}

void check(const Command& command, std::vector<std::string> line) {
    const Meaning meaning = meaningOf(line, command.set, command.order);
    line.insert(line.begin(), "--word");
    std::vector<char*> arguments = argumentsOf(line);
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
