#include "base/FatalMessage.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"
#include "tests/support/Faults.h"

namespace {

using quelm::fatal_message;
using quelm::markForkedChild;
using quelm::setProgramPath;
using quelm::test::Call;
using quelm::test::ChildOutcome;
using quelm::test::conditions;
using quelm::test::failCall;
using quelm::test::inChild;

ChildOutcome say(int status, int systemError, const std::string& text) {
    return inChild([&] {
        errno = systemError;
        fatal_message(status, 0, "%s", text.c_str());
        std::exit(100 + errno);
    });
}

TEST(FatalMessage, GoesToBothStreamsAndEndsTheProcessWithTheStatus) {
    const ChildOutcome outcome = say(3, 0, "no way");
    EXPECT_EQ(outcome.error, "no way\n");
    EXPECT_EQ(outcome.output, "no way\n");
    EXPECT_EQ(outcome.exitStatus(), 3);
}

TEST(FatalMessage, AppendsTheSystemErrorWhenThereIsOne) {
    const ChildOutcome outcome = say(1, ENOENT, "no way");
    EXPECT_EQ(outcome.error, "no way\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(outcome.output, outcome.error);
}

TEST(FatalMessage, AMessageThatEndsItsLineKeepsAnEmptyLineBeforeTheSystemError) {
    EXPECT_EQ(say(1, ENOENT, "no way\n").error, "no way\n\nSystem error 2: No such file or directory\n");
}

TEST(FatalMessage, NoNewlineIsAddedToAMessageThatHasOne) {
    EXPECT_EQ(say(1, 0, "no way\n").error, "no way\n");
    EXPECT_EQ(say(1, 0, "").error, "\n");
}

TEST(FatalMessage, ATextThatCannotBeFormattedLeavesTheSystemError) {
    const ChildOutcome outcome = inChild([] {
        errno = ENOENT;
        fatal_message(4, 0, "%ls", L"\x20ac");
    });
    EXPECT_EQ(outcome.error, "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(outcome.exitStatus(), 4);
}

TEST(FatalMessage, StatusZeroReturnsWithErrnoAsItWas) {
    const ChildOutcome outcome = say(0, ENOENT, "only said");
    EXPECT_EQ(outcome.error, "only said\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(outcome.exitStatus(), 100 + ENOENT);
}

TEST(FatalMessage, ATextOf4095BytesFitsTheFirstBuffer) {
    const std::string text(4095, 'x');
    const ChildOutcome outcome = inChild([&] {
        conditions().largestRealloc = 0;
        fatal_message(0, 0, "%s", text.c_str());
        std::exit(conditions().largestRealloc == 4096 ? 0 : 1);
    });
    EXPECT_EQ(outcome.error, text + "\n");
    EXPECT_EQ(outcome.exitStatus(), 0);
}

TEST(FatalMessage, ALongerTextGrowsTheBufferToTheExactSize) {
    for (const std::size_t length : {std::size_t{4096}, std::size_t{5000}, std::size_t{300000}}) {
        const std::string text(length, 'x');
        const ChildOutcome outcome = inChild([&] {
            conditions().largestRealloc = 0;
            fatal_message(0, 0, "%s", text.c_str());
            std::exit(conditions().largestRealloc == length + 1 ? 0 : 1);
        });
        EXPECT_EQ(outcome.error, text + "\n");
        EXPECT_EQ(outcome.output, text + "\n");
        EXPECT_EQ(outcome.exitStatus(), 0);
    }
}

TEST(FatalMessage, TheSystemErrorOfALongTextIsWhole) {
    for (const std::size_t length : {std::size_t{4060}, std::size_t{4095}, std::size_t{5000}}) {
        const std::string text(length, 'x');
        EXPECT_EQ(say(1, ENOENT, text).error, text + "\nSystem error 2: No such file or directory\n");
    }
}

TEST(FatalMessage, WithoutMemoryForTheFirstBufferAFixedTextIsPrinted) {
    const ChildOutcome outcome = inChild([] {
        failCall(Call::realloc, ENOMEM);
        errno = ENOENT;
        fatal_message(4, 0, "never seen");
    });
    EXPECT_EQ(outcome.error, "Can't allocate memory for error message\n");
    EXPECT_EQ(outcome.output, "Can't allocate memory for error message\n");
    EXPECT_EQ(outcome.exitStatus(), 4);
}

TEST(FatalMessage, TheFixedTextHasThePrefixToo) {
    const ChildOutcome outcome = inChild([] {
        setProgramPath("/x/tamrix");
        failCall(Call::realloc, ENOMEM);
        fatal_message(4, 0, "never seen");
    });
    EXPECT_EQ(outcome.error, "tamrix: Can't allocate memory for error message\n");
    EXPECT_EQ(outcome.output, outcome.error);
}

TEST(FatalMessage, StandardErrorComesFirst) {
    // Writing to a pipe that nobody reads ends the child.
    const ChildOutcome outcome = inChild([] {
        std::array<int, 2> pipe{};
        ASSERT_EQ(::pipe(pipe.data()), 0);
        ::close(pipe[0]);
        ::dup2(pipe[1], STDOUT_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        fatal_message(1, 0, "no way");
    });
    EXPECT_EQ(outcome.error, "no way\n");
    EXPECT_TRUE(WIFSIGNALED(outcome.waitStatus));
}

TEST(FatalMessage, ErrnoIsAsItWasAlsoWhenNothingCanBePrinted) {
    const ChildOutcome outcome = inChild([] {
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
        errno = ENOENT;
        fatal_message(0, 0, "unheard");
        ::_exit(errno == ENOENT ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

ChildOutcome sayAs(const char* path) {
    return inChild([=] {
        setProgramPath(path);
        fatal_message(1, 0, "no way");
    });
}

TEST(FatalMessage, TheBaseNameOfTheProgramPathStandsBeforeIt) {
    EXPECT_EQ(sayAs("/opt/ovt/admin/sbin/tamrix").error, "tamrix: no way\n");
    EXPECT_EQ(sayAs("/opt/ovt/admin/sbin/tamrix").output, "tamrix: no way\n");
    EXPECT_EQ(sayAs("tamrix").error, "tamrix: no way\n");
}

TEST(FatalMessage, WithoutAProgramPathThereIsNoPrefix) {
    EXPECT_EQ(sayAs(nullptr).error, "no way\n");
    EXPECT_EQ(sayAs("").error, "no way\n");
}

TEST(FatalMessage, AForkedChildEndsWithoutTheExitHandlersOfItsParent) {
    const auto goodbye = [] { (void)!::write(STDERR_FILENO, "goodbye", 7); };
    const auto end = [&](bool forked) {
        return inChild([&] {
            std::atexit(goodbye);
            if (forked) {
                markForkedChild();
            }
            fatal_message(5, 0, "no way");
        });
    };
    EXPECT_EQ(end(true).error, "no way\n");
    EXPECT_EQ(end(true).exitStatus(), 5);
    EXPECT_EQ(end(false).error, "no way\ngoodbye");
}

} // namespace
