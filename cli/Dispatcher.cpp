// To add a command: write its source in commands/, declare it in commands/Commands.h and give it a row here.
// CONTRIBUTING.md lists what else a command needs.
#include "cli/Dispatcher.h"

#include <iostream>
#include <map>
#include <string>
#include <string_view>

#include "commands/Commands.h"

namespace quelm {

namespace {

// The types offered are those that a custom handler can have, so `module` is missing on purpose; so is -h.
#define FPM_OPTIONS " [--service=name] [--poold=path]"
constexpr const char* usageText =
    "Usage: tamrix <COMMAND> <COMMAND OPTIONS...>\n"
    "\t--add [--displayname=<name>] --path=<path to php-cgi> [--clipath=<path to php-cli>]"
    " --phpini=<path to php.ini> --type=<cgi|fastcgi|fpm> [--id=<handler id>]" FPM_OPTIONS "\n"
    "\t\tregister new php handler\n"
    "\t--remove --id=<handler id>\n"
    "\t\tremove existing handler\n"
    "\t--update --id=<handler id> [--displayname=<name>] [--path=<path to php-cgi>]"
    " [--clipath=<path to php-cli>] [--phpini=<path to php.ini>] [--type=<cgi|fastcgi|fpm>]" FPM_OPTIONS "\n"
    "\t\tupdate existing handler\n"
    "\t--list-json\n"
    "\t\tlist handlers in json format\n"
    "\t--list\n"
    "\t\tlist handlers in human readable format\n"
    "\t--reread\n"
    "\t\treread handlers info\n"
    "\t--help\n"
    "\t\tshow this help\n"
    "\n"
    "\tCommands <add|remove|update> run scripts from /etc/ovt/php_configurator.d/"
    " with argument <add|remove|update>\n"
    "\t\tEnvironment variables available in scripts:\n"
    "\t\t$PHP_ID - handler id\n"
    "\t\t$PHP_PATH - path to php-cgi\n"
    "\t\t$PHP_INI - path to php.ini\n"
    "\t\t$PHP_CLI - path to php-cli\n"
    "\t\t$PHP_VERSION - version of php\n"
    "\t\t$PHP_TYPE - type of handler <module|cgi|fastcgi|fpm>\n";
#undef FPM_OPTIONS

} // namespace

void printUsage() {
    std::cerr << usageText;
}

void printErrorAndUsage(const std::string& message) {
    if (!message.empty()) {
        std::cerr << "Error: " << message << '\n';
    }
    printUsage();
}

namespace {

int helpCommand(int /*argc*/, char** /*argv*/) {
    printUsage();
    return 0;
}

} // namespace

int dispatch(int argc, char** argv) {
    const std::map<std::string_view, CommandHandler> commands{
        // clang-format off
        {"--add", addCommand},
        {"--remove", removeCommand},
        {"--update", updateCommand},
        {"--list-json", listJsonCommand},
        {"--list", listCommand},
        {"--reread", rereadCommand},
        {"-h", helpCommand},
        {"--help", helpCommand},
        // clang-format on
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
