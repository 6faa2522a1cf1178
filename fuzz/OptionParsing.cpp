// Any command line for each changing command, against a model of what the options mean. The first byte of the
// input chooses the command; each word ends with a newline.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "commands/CommandDescriptions.h"
#include "fuzz/OptionModel.h"
#include "fuzz/Require.h"
#include "fuzz/Target.h"
#include "fuzz/Words.h"
#include "tests/registry/TestRegistry.h"

namespace quelm::fuzz {

namespace {

struct Command {
    CommandOptions (*options)();
    std::string caption;
    std::vector<std::string> order;
    OptionSet set;
};

const std::array<Command, 4>& commands() {
    using enum OptionKind;
    static const std::array<Command, 4> all{{
        {addOptions,
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
        {removeOptions,
         "Remove handler options",
         {"id", "help", "no-set-dirty-flag"},
         {{"id", requiredText}, {"help", flag}, {"no-set-dirty-flag", flag}}},
        {updateOptions,
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
        {rereadOptions, "Reread handlers options", {"no-set-dirty-flag"}, {{"no-set-dirty-flag", flag}}},
    }};
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
        const std::string start = "[Error] " + meaning.failure + "\n\n" + command.caption + ":\n  --";
        require(error.starts_with(start) && error.ends_with("\n\n"),
                "refused with \"" + start + "\", not \"" + error + "\"");
    }
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quelm::fuzz;
    if (size == 0) {
        return 0;
    }
    std::string text = textOf(data + 1, size - 1);
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end()); // no argument can hold one
    check(commands()[data[0] % commands().size()], words(text, '\n'));
    return 0;
}
