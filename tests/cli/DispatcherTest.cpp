#include "cli/Dispatcher.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

namespace {

const std::string usage =
    "Usage: tamrix <COMMAND> <COMMAND OPTIONS...>\n"
    "\t--add [--displayname=<name>] --path=<path to php-cgi> [--clipath=<path to php-cli>] --phpini=<path to "
    "php.ini> --type=<cgi|fastcgi|fpm> [--id=<handler id>] [--service=name] [--poold=path]\n"
    "\t\tregister new php handler\n"
    "\t--remove --id=<handler id>\n"
    "\t\tremove existing handler\n"
    "\t--update --id=<handler id> [--displayname=<name>] [--path=<path to php-cgi>] [--clipath=<path to "
    "php-cli>] [--phpini=<path to php.ini>] [--type=<cgi|fastcgi|fpm>] [--service=name] [--poold=path]\n"
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
    "\tCommands <add|remove|update> run scripts from /etc/ovt/php_configurator.d/ with argument "
    "<add|remove|update>\n"
    "\t\tEnvironment variables available in scripts:\n"
    "\t\t$PHP_ID - handler id\n"
    "\t\t$PHP_PATH - path to php-cgi\n"
    "\t\t$PHP_INI - path to php.ini\n"
    "\t\t$PHP_CLI - path to php-cli\n"
    "\t\t$PHP_VERSION - version of php\n"
    "\t\t$PHP_TYPE - type of handler <module|cgi|fastcgi|fpm>\n";

TEST(Usage, IsPrintedOnStandardErrorBehindAMessageIfThereIsOne) {
    const quelm::test::CapturedStreams captured;
    quelm::printUsage();
    EXPECT_EQ(captured.error(), usage);
    quelm::printErrorAndUsage("no command specified");
    EXPECT_EQ(captured.error(), usage + "Error: no command specified\n" + usage);
    quelm::printErrorAndUsage("");
    EXPECT_EQ(captured.error(), usage + "Error: no command specified\n" + usage + usage);
    EXPECT_EQ(captured.output(), "");
}

} // namespace
