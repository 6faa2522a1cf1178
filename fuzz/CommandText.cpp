// Any words as a command: unquoting its text as a shell would gives them back. The input is words that each
// end with a NUL byte.
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "fuzz/Target.h"
#include "fuzz/Words.h"
#include "lib/process/lib/ExecCmd.h"

namespace quelm::fuzz {

namespace {

std::vector<std::string> unquoted(std::string_view text) {
    std::vector<std::string> found(1);
    bool verbatim = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\'') {
            verbatim = !verbatim;
        } else if (verbatim) {
            found.back() += text[at];
        } else if (text[at] == ' ') {
            found.emplace_back();
        } else if (text[at] == '\\') {
            require(++at < text.size() && text[at] != '\n', "a backslash stands before what it quotes");
            found.back() += text[at];
        } else {
            require(text[at] != '\n', "a newline stands between apostrophes");
            found.back() += text[at];
        }
    }
    require(!verbatim, "apostrophes come in pairs");
    return found;
}

void check(const std::vector<std::string>& given) {
    ExecCmd command(given.front());
    for (std::size_t word = 1; word < given.size(); ++word) {
        command.addArg(given[word]);
    }
    const std::string text = command.commandText();
    require(unquoted(text) == given, "unquoting gives the words back");
    require(ExecCmd(command).commandText() == text, "a copy reads like the original");
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quelm::fuzz;
    const std::vector<std::string> given = words(textOf(data, size), '\0');
    if (!given.empty()) {
        check(given);
    }
    return 0;
}
