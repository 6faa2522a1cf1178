// To add a command: declare its handler in cli/CommandHandlers.h, give it a row here and its lines in
// cli/Usage.cpp, and define it in a source of its own under commands/ or registry/.
#include "cli/Dispatcher.h"

#include <map>
#include <string>
#include <string_view>

#include "cli/CommandHandlers.h"
#include "cli/Usage.h"

namespace quelm {

namespace {

int helpCommand(int /*argc*/, char** /*argv*/) {
    printUsage();
    return 0;
}

} // namespace

int dispatch(int argc, char** argv) {
    const std::map<std::string_view, CommandHandler> commands{
        {"--add", addCommand},       {"--remove", removeCommand},
        {"--update", updateCommand}, {"--list-json", listJsonCommand},
        {"--list", listCommand},     {"--reread", rereadCommand},
        {"-h", helpCommand},         {"--help", helpCommand},
    };
    if (argc < 2) {
        printErrorAndUsage("no command specified");
        return 1;
    }
    const auto command = commands.find(argv[1]);
    if (command == commands.end()) {
        printErrorAndUsage(std::string("invalid command ") + argv[1]);
        return 1;
    }
    return command->second(argc - 1, argv + 1);
}

} // namespace quelm
