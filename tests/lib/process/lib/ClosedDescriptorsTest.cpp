// Every way of starting a program, from a process that has some of its standard descriptors closed. What the
// child shares with the utility stays closed in it; no pipe of ours may take the place.
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Capture.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/ForkExecv.h"
#include "lib/process/lib/PlainChild.h"
#include "lib/process/lib/panel/Runners.h"
#include "lib/process/lib/panel/VariadicExec.h"
#include "tests/support/Captured.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

// Prints on both streams and ends with 8 plus the sum of 1, 2 and 4 for an open descriptor 0, 1 and 2.
constexpr const char* script = "echo out; echo err >&2; s=8\n"
                               "test -e /proc/$$/fd/0 && s=$((s + 1))\n"
                               "test -e /proc/$$/fd/1 && s=$((s + 2))\n"
                               "test -e /proc/$$/fd/2 && s=$((s + 4))\n"
                               "exit $s";

// The sets of standard descriptors are sums of 1, 2 and 4 too.
constexpr int input = 1;
constexpr int output = 2;
constexpr int error = 4;

class ClosedDescriptors : public testing::TestWithParam<int> {
protected:
    // Runs `body` with the parameter's descriptors closed; it gets the status that the script ends with when
    // it is given those of `given`.
    template <class Body>
    void expectGood(int given, const Body& body) {
        EXPECT_TRUE(holdsInChild([given, &body] {
            closeStandard(GetParam());
            return body(8 + (~GetParam() & 7) + (GetParam() & given));
        }));
    }

    const ArgVector arguments{"sh", "-c", script};
};

INSTANTIATE_TEST_SUITE_P(AllEightSets, ClosedDescriptors, testing::Range(0, 8));

TEST_P(ClosedDescriptors, CaptureOfBothStreams) {
    expectGood(output | error, [this](int status) {
        char* out = nullptr;
        char* err = nullptr;
        const int result = fork_execv_getouterr(&out, &err, "/bin/sh", arguments.data());
        const CText outText(out);
        const CText errText(err);
        return result == status && std::string(out) == "out\n" && std::string(err) == "err\n";
    });
}

TEST_P(ClosedDescriptors, CaptureOfStandardOutputAlone) {
    expectGood(output, [this](int status) {
        char* out = nullptr;
        const int result = fork_execv_getout(&out, "/bin/sh", arguments.data());
        const CText outText(out);
        return result == status && std::string(out) == "out\n";
    });
}

TEST_P(ClosedDescriptors, CallbacksAndStrings) {
    expectGood(input | output | error, [this](int status) {
        std::string out;
        std::string err;
        const int result = forkExecvGetOutErr(out, err, "/bin/sh", arguments.get());
        return result == status && out == "out\n" && err == "err\n";
    });
}

TEST_P(ClosedDescriptors, TwoGivenDescriptors) {
    const TempDir directory;
    const std::string path = directory.path("out");
    const int low = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
    const int file = ::fcntl(low, F_DUPFD, 20);
    expectGood(input | output, [file](int status) {
        return fork_exec_fd(-1, file, "/bin/sh", "-c", script, nullptr) == status;
    });
    expectGood(0, [file](int) {
        return fork_exec_fd(-1, file, "/bin/sh", "-c", "echo abcdefg >&2; exit 7", nullptr) == 7;
    });
    ::close(file);
    ::close(low);
    EXPECT_EQ(readFile(path), "out\n");
}

TEST_P(ClosedDescriptors, ThePlainStart) {
    expectGood(0, [this](int status) {
        int word = 0;
        ::waitpid(fork_execv_pipes(0, 1, 2, "/bin/sh", arguments.data()), &word, 0);
        return WEXITSTATUS(word) == status;
    });
    expectGood(0, [this](int status) { return fork_and_wait("/bin/sh", arguments.data()) == status; });
    expectGood(input | output | error, [this](int status) {
        int word = 0;
        ::waitpid(fork_execv_pipes(-1, -1, -1, "/bin/sh", arguments.data()), &word, 0);
        return WEXITSTATUS(word) == status;
    });
}

TEST_P(ClosedDescriptors, AShellCommandThatIsRead) {
    expectGood(output, [](int status) {
        char* out = nullptr;
        const int result = popen_exec(script, &out);
        const CText outText(out);
        return result == status && std::string(out) == "out\n";
    });
}

TEST_P(ClosedDescriptors, AShellCommandThatIsFed) {
    expectGood(input, [](int status) {
        const std::string command = std::string("read word; test \"$word\" = given || exit 1\n") + script;
        return exec_with_input(command.c_str(), "given\n") == status;
    });
}

} // namespace

} // namespace quelm::test
