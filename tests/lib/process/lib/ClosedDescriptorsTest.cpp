// Every way of starting a program, from a process that has some of its standard descriptors closed. What the
// child shares with the utility stays closed in it; no pipe of ours may take the place.
#include <functional>
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

// The body gets the status that the script ends with when it is given those of `given`.
struct Start {
    const char* name;
    int given;
    std::function<bool(int status)> body;
};

TEST(ClosedDescriptors, NoWayOfStartingAProgramMindsThem) {
    const ArgVector arguments{"sh", "-c", script};
    const TempDir directory;
    const UniqueFd low(::open(directory.path("out").c_str(), O_RDWR | O_CREAT, 0600));
    const UniqueFd file(::fcntl(low.get(), F_DUPFD, 20));
    const auto both = [](char* out, char* err) {
        const CText outText(out);
        const CText errText(err);
        return std::string(out) == "out\n" && (err == nullptr || std::string(err) == "err\n");
    };
    const auto waitedFor = [](pid_t child) {
        int word = 0;
        ::waitpid(child, &word, 0);
        return WEXITSTATUS(word);
    };
    for (const Start& start : {
             Start{"captured", output | error,
                   [&](int status) {
                       char* out = nullptr;
                       char* err = nullptr;
                       const int result = fork_execv_getouterr(&out, &err, "/bin/sh", arguments.data());
                       return result == status && both(out, err);
                   }},
             Start{"output captured", output,
                   [&](int status) {
                       char* out = nullptr;
                       const int result = fork_execv_getout(&out, "/bin/sh", arguments.data());
                       return result == status && both(out, nullptr);
                   }},
             Start{"strings", input | output | error,
                   [&](int status) {
                       std::string out;
                       std::string err;
                       const int result = forkExecvGetOutErr(out, err, "/bin/sh", arguments.get());
                       return result == status && out == "out\n" && err == "err\n";
                   }},
             Start{"between descriptors", input | output,
                   [&](int status) {
                       return fork_exec_fd(-1, file.get(), "/bin/sh", "-c", script, nullptr) == status &&
                              readFile(directory.path("out")).ends_with("out\n");
                   }},
             Start{"plain", 0,
                   [&](int status) {
                       return waitedFor(fork_execv_pipes(0, 1, 2, "/bin/sh", arguments.data())) == status;
                   }},
             Start{"plain, with null devices", input | output | error,
                   [&](int status) {
                       return waitedFor(fork_execv_pipes(-1, -1, -1, "/bin/sh", arguments.data())) == status;
                   }},
             Start{"waited for", 0,
                   [&](int status) { return fork_and_wait("/bin/sh", arguments.data()) == status; }},
             Start{"read", output,
                   [&](int status) {
                       char* out = nullptr;
                       return popen_exec(script, &out) == status && both(out, nullptr);
                   }},
             Start{"fed", input,
                   [](int status) {
                       const std::string command =
                           std::string("read word; [ \"$word\" = given ] || exit 1\n") + script;
                       return exec_with_input(command.c_str(), "given\n") == status;
                   }},
         }) {
        for (int closed = 0; closed < 8; ++closed) {
            EXPECT_TRUE(holdsInChild([&] {
                closeStandard(closed);
                return start.body(8 + (~closed & 7) + (closed & start.given));
            })) << start.name
                << " without " << closed;
        }
    }
}

} // namespace

} // namespace quelm::test
