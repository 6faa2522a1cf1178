#include "cli/Dispatcher.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/CommandHandlers.h"

namespace {

std::string called;
std::vector<std::string> receivedArguments;

int record(const char* name, int argc, char** argv, int status) {
    called = name;
    receivedArguments.assign(argv, argv + argc);
    return status;
}

} // namespace

namespace quelm {

int addCommand(int argc, char** argv) {
    return record("add", argc, argv, 11);
}
int removeCommand(int argc, char** argv) {
    return record("remove", argc, argv, 12);
}
int updateCommand(int argc, char** argv) {
    return record("update", argc, argv, 13);
}
int listJsonCommand(int argc, char** argv) {
    return record("list-json", argc, argv, 14);
}
int listCommand(int argc, char** argv) {
    return record("list", argc, argv, 15);
}
int rereadCommand(int argc, char** argv) {
    return record("reread", argc, argv, 16);
}

} // namespace quelm

namespace {

struct Dispatched {
    int status;
    std::string called;
    std::vector<std::string> arguments;
    std::string error;
};

Dispatched dispatch(std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    called = "none";
    receivedArguments.clear();
    testing::internal::CaptureStderr();
    const int status = quelm::dispatch(static_cast<int>(words.size()), argv.data());
    return {status, called, receivedArguments, testing::internal::GetCapturedStderr()};
}

TEST(Dispatcher, EachWordReachesItsHandlerAndTheHandlersResultIsTheStatus) {
    const std::vector<std::pair<std::string, int>> words{{"add", 11},       {"remove", 12}, {"update", 13},
                                                         {"list-json", 14}, {"list", 15},   {"reread", 16}};
    for (const auto& [word, status] : words) {
        const Dispatched result = dispatch({"tamrix", "--" + word});
        EXPECT_EQ(result.called, word);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.error, "");
    }
}

TEST(Dispatcher, TheHandlersArgumentsBeginWithTheCommandWord) {
    const Dispatched result = dispatch({"tamrix", "--list", "extra", "words"});
    EXPECT_EQ(result.arguments, (std::vector<std::string>{"--list", "extra", "words"}));
}

TEST(Dispatcher, OnlyTheFirstArgumentSelectsTheCommand) {
    EXPECT_EQ(dispatch({"tamrix", "--list", "--add", "-h"}).called, "list");
}

TEST(Dispatcher, TheWordIsComparedWholeAndExactly) {
    for (const std::string word : {"--LIST", "--lis", "--list=x", " --list", "list", "--list-jso", "--h"}) {
        const Dispatched result = dispatch({"tamrix", word});
        EXPECT_EQ(result.called, "none") << word;
        EXPECT_EQ(result.status, 1) << word;
        EXPECT_TRUE(result.error.starts_with("Error: invalid command " + word + "\nUsage: tamrix <COMMAND>"))
            << result.error;
    }
}

TEST(Dispatcher, AnEmptyWordLeavesTheTrailingBlank) {
    EXPECT_TRUE(dispatch({"tamrix", ""}).error.starts_with("Error: invalid command \nUsage: "));
}

TEST(Dispatcher, AMissingWordIsReportedAndGivesOne) {
    const Dispatched result = dispatch({"tamrix"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.error.starts_with("Error: no command specified\nUsage: tamrix <COMMAND>"));
}

TEST(Dispatcher, NoArgumentsAtAllCountAsAMissingWord) {
    const Dispatched result = dispatch({});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.error.starts_with("Error: no command specified\n"));
}

TEST(Dispatcher, HelpPrintsOnlyTheUsageAndGivesZero) {
    for (const std::string word : {"-h", "--help"}) {
        const Dispatched result = dispatch({"tamrix", word, "ignored"});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.error.starts_with("Usage: tamrix <COMMAND> <COMMAND OPTIONS...>\n"))
            << result.error;
    }
}

} // namespace
