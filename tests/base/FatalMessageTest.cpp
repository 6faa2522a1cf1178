#include "base/FatalMessage.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <tuple>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"
#include "tests/support/Faults.h"

namespace quelm::test {

namespace {

const std::string noFile = "System error 2: No such file or directory\n";

// With status 0 it returns, and the child ends with 100 + errno.
ChildOutcome say(int status, int systemError, const std::string& text, const char* programPath = nullptr) {
    return inChild([&] {
        setProgramPath(programPath);
        errno = systemError;
        fatal_message(status, 0, "%s", text.c_str());
        return 100 + errno;
    });
}

TEST(FatalMessage, GoesToBothStreamsWithTheSystemErrorAndEndsTheProcessWithTheStatus) {
    for (const auto& [status, systemError, text, printed] :
         {std::tuple<int, int, std::string, std::string>{3, 0, "no way", "no way\n"},
          {1, 0, "no way\n", "no way\n"},
          {1, 0, "", "\n"},
          {1, ENOENT, "no way", "no way\n" + noFile},
          {1, ENOENT, "no way\n", "no way\n\n" + noFile},
          {0, ENOENT, "only said", "only said\n" + noFile}}) {
        const ChildOutcome outcome = say(status, systemError, text);
        EXPECT_EQ(outcome.error, printed);
        EXPECT_EQ(outcome.output, printed);
        EXPECT_EQ(outcome.exitStatus(), status != 0 ? status : 100 + systemError);
    }
}

TEST(FatalMessage, ATextThatCannotBeFormattedLeavesTheSystemError) {
    const ChildOutcome outcome = inChild([] {
        errno = ENOENT;
        fatal_message(4, 0, "%ls", L"\x20ac");
    });
    EXPECT_EQ(outcome.error, "\n" + noFile);
    EXPECT_EQ(outcome.exitStatus(), 4);
}

TEST(FatalMessage, ATextBeyond4095BytesGrowsTheBufferToTheExactSizeAndIsWhole) {
    for (const std::size_t length : {4060U, 4095U, 4096U, 5000U, 300000U}) {
        const std::string text(length, 'x');
        const ChildOutcome outcome = inChild([&] {
            conditions().largestRealloc = 0;
            fatal_message(0, 0, "%s", text.c_str());
            return conditions().largestRealloc == std::max<std::size_t>(4096, length + 1) ? 0 : 1;
        });
        EXPECT_EQ(outcome.error, text + "\n");
        EXPECT_EQ(outcome.output, text + "\n");
        EXPECT_EQ(outcome.exitStatus(), 0) << length;
        EXPECT_EQ(say(1, ENOENT, text).error, text + "\n" + noFile);
    }
}

TEST(FatalMessage, WithoutMemoryForTheFirstBufferAFixedTextIsPrinted) {
    const ChildOutcome outcome = inChild([] {
        setProgramPath("/x/tamrix");
        failCall(Call::realloc, ENOMEM);
        errno = ENOENT;
        fatal_message(4, 0, "never seen");
    });
    EXPECT_EQ(outcome.error, "tamrix: Can't allocate memory for error message\n");
    EXPECT_EQ(outcome.output, outcome.error);
    EXPECT_EQ(outcome.exitStatus(), 4);
}

TEST(FatalMessage, StandardErrorComesFirst) {
    // Writing to a pipe that nobody reads ends the child.
    const ChildOutcome outcome = inChild([] {
        int pipe[2] = {-1, -1};
        (void)!::pipe(pipe);
        ::close(pipe[0]);
        ::dup2(pipe[1], STDOUT_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        fatal_message(1, 0, "no way");
    });
    EXPECT_EQ(outcome.error, "no way\n");
    EXPECT_TRUE(WIFSIGNALED(outcome.waitStatus));
}

TEST(FatalMessage, ErrnoIsAsItWasAlsoWhenNothingCanBePrinted) {
    EXPECT_TRUE(holdsInChild([] {
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
        errno = ENOENT;
        fatal_message(0, 0, "unheard");
        return errno == ENOENT;
    }));
}

TEST(FatalMessage, TheBaseNameOfTheProgramPathStandsBeforeIt) {
    EXPECT_EQ(say(1, 0, "no way", "/opt/ovt/admin/sbin/tamrix").output, "tamrix: no way\n");
    EXPECT_EQ(say(1, 0, "no way", "tamrix").error, "tamrix: no way\n");
    EXPECT_EQ(say(1, 0, "no way", "").error, "no way\n");
}

TEST(FatalMessage, AForkedChildEndsWithoutTheExitHandlersOfItsParent) {
    const auto end = [&](bool forked) {
        return inChild([&] {
            std::atexit([] { (void)!::write(STDERR_FILENO, "goodbye", 7); });
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

} // namespace quelm::test
