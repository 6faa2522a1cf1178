#include "cli/Dispatcher.h"

#include <gtest/gtest.h>

namespace {

const char* const usage =
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

TEST(Usage, IsTheTwentyFourLinesOnStandardError) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    quelm::printUsage();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), usage);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Usage, AMessageStandsBeforeIt) {
    testing::internal::CaptureStderr();
    quelm::printErrorAndUsage("no command specified");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("Error: no command specified\n") + usage);
}

TEST(Usage, AnEmptyMessageGivesOnlyTheUsage) {
    testing::internal::CaptureStderr();
    quelm::printErrorAndUsage("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), usage);
}

} // namespace
