#include "commands/CommandOptions.h"

#include <stdexcept>
#include <vector>

#include <boost/any.hpp>
#include <boost/program_options/errors.hpp>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

namespace {

using quelm::CommandOptions;

const std::string description = "Sample options:\n"
                                "  --id arg              handler id\n"
                                "  --path arg            path to php-cgi\n"
                                "  --phpini arg          path to php.ini\n"
                                "  --help                show help\n"
                                "  --no-set-dirty-flag   do not call depotctl --set-dirty-flag\n"
                                "\n";

class Options : public testing::Test {
protected:
    Options() {
        options_.addText("id", "handler id");
        options_.addText("path", "path to php-cgi");
        options_.addRequiredText("phpini", "path to php.ini");
        options_.addFlag("help", "show help");
        options_.addDirtyFlagSwitch();
    }

    // Runs with these words behind the command word.
    int run(
        std::vector<std::string> words, const std::function<void()>& steps = [] {}) {
        words.insert(words.begin(), "--sample");
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        const quelm::test::CapturedStreams captured;
        const int status = options_.run(static_cast<int>(words.size()), argv.data(), steps);
        error_ = captured.error();
        return status;
    }

    void expectError(const std::vector<std::string>& words, const std::string& text) {
        bool stepsRan = false;
        EXPECT_EQ(run(words, [&] { stepsRan = true; }), 1);
        EXPECT_FALSE(stepsRan);
        EXPECT_EQ(error_, "[Error] " + text + "\n\n" + description);
    }

    CommandOptions options_{"Sample options"};
    std::string error_;
};

TEST_F(Options, AValueFollowsAsTheNextWordOrBehindAnEqualsSign) {
    EXPECT_EQ(run({"--id", "a b", "--phpini=/x=y"}), 0);
    EXPECT_EQ(options_.text("id"), "a b");
    EXPECT_EQ(options_.text("phpini"), "/x=y");
    EXPECT_EQ(error_, "");
}

TEST_F(Options, AnyWordIsAValueWhereOneIsDueAlsoAnEmptyOneOrAnOptionsName) {
    EXPECT_EQ(run({"--id", "", "--phpini", "--path"}), 0);
    EXPECT_TRUE(options_.given("id"));
    EXPECT_EQ(options_.text("id"), "");
    EXPECT_EQ(options_.text("phpini"), "--path");
    EXPECT_FALSE(options_.given("path"));
}

TEST_F(Options, AnUnambiguousPrefixIsAccepted) {
    EXPECT_EQ(run({"--i=1", "--php", "x", "--no"}), 0);
    EXPECT_EQ(options_.text("id"), "1");
    EXPECT_TRUE(options_.skipDirtyFlag());
}

TEST_F(Options, StrayWordsAndEverythingBehindTwoDashesAreIgnored) {
    EXPECT_EQ(run({"stray", "--=x", "--phpini", "x", "--", "--id", "1", "--bogus", "--no-set-dirty-flag"}),
              0);
    EXPECT_EQ(error_, "");
    EXPECT_FALSE(options_.given("id"));
    EXPECT_FALSE(options_.skipDirtyFlag());
}

TEST_F(Options, TheTypedAccessToAnAbsentOptionThrowsTheLibrarysBadCast) {
    EXPECT_THROW(run({"--phpini", "x"}, [&] { options_.text("path"); }), boost::bad_any_cast);
}

TEST_F(Options, OnlyOptionErrorsOfTheStepsAreReportedHere) {
    EXPECT_EQ(run({"--phpini", "x"}, [] { throw boost::program_options::error("late"); }), 1);
    EXPECT_EQ(error_, "[Error] late\n\n" + description);
    EXPECT_THROW(run({"--phpini", "y"}, [] { throw std::logic_error("passes"); }), std::logic_error);
}

TEST_F(Options, OptionErrorsPrintTheLibrarysTextAndTheDescription) {
    expectError({}, "the option '--phpini' is required but missing");
    expectError({"--bogus"}, "unrecognised option '--bogus'");
    expectError({"-x"}, "unrecognised option '-x'");
    expectError({"--id"}, "the required argument for option '--id' is missing");
    expectError({"--id="}, "the argument for option '--id' should follow immediately after the equal sign");
    expectError({"--p", "x"}, "option '--p' is ambiguous and matches '--path', and '--phpini'");
    expectError({"--id", "1", "--id", "2"}, "option '--id' cannot be specified more than once");
    expectError({"--no-set-dirty-flag=1"}, "option '--no-set-dirty-flag' does not take any arguments");
    expectError(
        {"--no-set-dirty-flag="},
        "the argument for option '--no-set-dirty-flag' should follow immediately after the equal sign");
}

TEST_F(Options, AnEqualsSignWithNothingBehindItIsBlamedOnTheOptionWhoseValueIsDue) {
    const std::string text = "should follow immediately after the equal sign";
    expectError({"--id", "--path="}, "the argument for option '--id' " + text);
    expectError({"--bogus="}, "the argument for option '--bogus' " + text);
    expectError({"--//-id="}, "the argument for option '--id' " + text);
    expectError({"--="}, "the argument for option " + text);
}

// The library fills its placeholders in wherever they stand, in the user's word too.
TEST_F(Options, AWordThatHoldsALibraryPlaceholderGetsTheLibrarysText) {
    expectError({"--%option%"}, "unrecognised option '--'");
    expectError({"--%prefix%"}, "unrecognised option '----'");
    expectError({"--id%prefix%%path=x"}, "unrecognised option '--id--%path=x'");
    expectError({"-%prefix%x"}, "unrecognised option '---x'");
    expectError({"--%value%"}, "unrecognised option '--%value%'");
    expectError({"--100%"}, "unrecognised option '--100%'");
    expectError({"--%orig%option%inal_token%"}, "unrecognised option '----%orig%option%inal_token%'");
    expectError({"--p=%prefix%"}, "option '--p=--' is ambiguous and matches '--path', and '--phpini'");
    expectError({"--%prefix%="},
                "the argument for option '----' should follow immediately after the equal sign");
}

TEST_F(Options, AWordThatWouldKeepTheLibraryBusyForEverIsRefusedAsItStands) {
    for (const std::string word :
         {"--%canonical_option%", "-%canonical_option%", "-x%canonical_option%", "--%original_token%",
          "--bogus=%canonical_option%", "--id%canonical_option%",
          "--%canonical_%option%option%%original_token%"}) {
        expectError({word}, "unrecognised option '" + word + "'");
    }
    expectError({"--p=%canonical_option%"},
                "option '--p=%canonical_option%' is ambiguous and matches '--path', and '--phpini'");
    expectError({"--%option%="},
                "the argument for option '--%option%' should follow immediately after the equal sign");
    expectError({"--no-set-dirty-flag=%original_token%"},
                "option '--no-set-dirty-flag' does not take any arguments");
}

// One byte less than 16 MiB is left to the library, which drops the placeholder's letters.
TEST_F(Options, AMessageOf16MebibytesIsNotLeftToTheLibrary) {
    const std::string before = "unrecognised option '";
    const std::string word = "--" + std::string((1 << 24) - before.size() - 12, 'x') + "%prefix%";
    EXPECT_EQ(run({word}), 1);
    EXPECT_TRUE(error_.starts_with("[Error] " + before + word.substr(0, word.size() - 8) + "--'\n\nSample"));
    EXPECT_EQ(run({word + "x"}), 1);
    EXPECT_TRUE(error_.starts_with("[Error] " + before + word + "x'\n\nSample"));
}

TEST_F(Options, ALibraryPlaceholderIsAnOrdinaryValue) {
    EXPECT_EQ(run({"--id", "--%canonical_option%", "--path=%prefix%", "--phpini", "x"}), 0);
    EXPECT_EQ(options_.text("id"), "--%canonical_option%");
    EXPECT_EQ(options_.text("path"), "%prefix%");
}

} // namespace
