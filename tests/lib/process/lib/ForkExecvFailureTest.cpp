// System calls that fail beneath forkExecvGetOutErr. Linked with wrappers, so that each failure can be
// ordered.
#include "lib/process/lib/ForkExecv.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <new>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/process/lib/ArgVector.h"
#include "lib/process/lib/ExecCmd.h"
#include "lib/process/lib/SystemError.h"
#include "tests/support/InChild.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace {

// Fails the next `times` calls with `error`, after `spared` ones, but only in the process that gave the
// order.
struct Order {
    int times = 0;
    int error = 0;
    int spared = 0;
    pid_t process = 0;
    int executed = 0;

    void give(int count, int number, int before = 0) { *this = {count, number, before, ::getpid(), 0}; }
    bool execute() {
        if (times == 0 || process != ::getpid() || spared-- > 0) {
            return false;
        }
        --times;
        ++executed;
        errno = error;
        return true;
    }
};

Order failFork;
Order failFcntl;
Order failSelect;
Order failRead;
Order failWrite;
Order failWait;
Order failNewArray;
int waitResult = -1;
bool userSwitchFails = false;
std::function<void()> beforeSelect;
std::function<void(int)> beforeKill;

} // namespace

extern "C" {
pid_t __real_fork();
pid_t __wrap_fork();
pid_t __wrap_fork() {
    return failFork.execute() ? -1 : __real_fork();
}

int __real_kill(pid_t process, int number);
int __wrap_kill(pid_t process, int number);
int __wrap_kill(pid_t process, int number) {
    if (beforeKill) {
        beforeKill(number);
    }
    return __real_kill(process, number);
}

int __real_fcntl(int descriptor, int command, ...);
int __wrap_fcntl(int descriptor, int command, ...);
int __wrap_fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return failFcntl.execute() ? -1 : __real_fcntl(descriptor, command, argument);
}

int __real_select(int width, fd_set* reading, fd_set* writing, fd_set* others, timeval* timeout);
int __wrap_select(int width, fd_set* reading, fd_set* writing, fd_set* others, timeval* timeout);
int __wrap_select(int width, fd_set* reading, fd_set* writing, fd_set* others, timeval* timeout) {
    if (beforeSelect) {
        beforeSelect();
    }
    return failSelect.execute() ? -1 : __real_select(width, reading, writing, others, timeout);
}

ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    return failRead.execute() ? -1 : __real_read(descriptor, buffer, size);
}

ssize_t __real_write(int descriptor, const void* buffer, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* buffer, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* buffer, std::size_t size) {
    return failWrite.execute() ? -1 : __real_write(descriptor, buffer, size);
}

pid_t __real_waitpid(pid_t child, int* status, int options);
pid_t __wrap_waitpid(pid_t child, int* status, int options);
pid_t __wrap_waitpid(pid_t child, int* status, int options) {
    return failWait.execute() ? waitResult : __real_waitpid(child, status, options);
}

// operator new[](unsigned long)
void* __real__Znam(std::size_t size);
void* __wrap__Znam(std::size_t size);
void* __wrap__Znam(std::size_t size) {
    if (failNewArray.execute()) {
        throw std::bad_alloc();
    }
    return __real__Znam(size);
}

// quelm::p_setuid(char const*, unsigned int)
int __real__ZN5quelm8p_setuidEPKcj(const char* user, unsigned flags);
int __wrap__ZN5quelm8p_setuidEPKcj(const char* user, unsigned flags);
int __wrap__ZN5quelm8p_setuidEPKcj(const char* user, unsigned flags) {
    if (userSwitchFails) {
        errno = EPERM;
        return -1;
    }
    return __real__ZN5quelm8p_setuidEPKcj(user, flags);
}
}

namespace {

using quelm::ArgVector;
using quelm::ExecCmd;
using quelm::forkExecvGetOutErr;
using quelm::SystemError;
using quelm::test::inChild;

class ForkExecvFailure : public testing::Test {
protected:
    int shell(const std::string& script, const std::string& input = "", const std::string& user = "") {
        return forkExecvGetOutErr(input, &output, &error, "/bin/sh", ArgVector{"sh", "-c", script}.get(),
                                  user, false);
    }
    void expectThrown(const std::string& message, int code, const std::string& script,
                      const std::string& input = "") {
        try {
            shell(script, input);
            FAIL() << "nothing was thrown";
        } catch (const SystemError& failure) {
            EXPECT_EQ(failure.message(), message);
            EXPECT_EQ(failure.code(), code);
        }
    }
    void TearDown() override {
        EXPECT_EQ(quelm::test::openDescriptors(), before);
        EXPECT_FALSE(quelm::test::hasChildren());
    }

    std::string output;
    std::string error;
    const std::set<std::string> before = quelm::test::openDescriptors();
};

TEST_F(ForkExecvFailure, AFailedForkIsThrownByItsType) {
    failFork.give(1, EAGAIN);
    EXPECT_THROW(shell("exit 0"), quelm::ExSystemError<11>);
    failFork.give(1, ENOMEM);
    expectThrown("forkExecvPipes: fork() failed", ENOMEM, "exit 0");
}

// Each of the three ends has its flags read and then set.
TEST_F(ForkExecvFailure, AFailedFcntlOnAnyEndEndsTheUtility) {
    for (int call = 0; call < 6; ++call) {
        const auto outcome = inChild([this, call] {
            failFcntl.give(1, EBADF, call);
            shell("exit 0");
        });
        EXPECT_EQ(outcome.exitStatus(), 1) << call;
        EXPECT_EQ(outcome.error,
                  "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed\nSystem error 9: Bad file descriptor\n");
        EXPECT_EQ(outcome.output, outcome.error);
    }
}

TEST_F(ForkExecvFailure, AFailedSelectIsThrownAndEndsTheChild) {
    failSelect.give(1, EBADF);
    expectThrown("forkExecvGetOutErr: select() failed", EBADF, "exec sleep 60");
}

TEST_F(ForkExecvFailure, SigtermIsSentBeforeThePipesAreClosed) {
    std::size_t openThen = 0;
    int sent = 0;
    beforeKill = [&](int number) {
        openThen = quelm::test::openDescriptors().size();
        sent = number;
    };
    failSelect.give(1, EBADF);
    expectThrown("forkExecvGetOutErr: select() failed", EBADF, "exec sleep 60");
    beforeKill = nullptr;
    EXPECT_EQ(sent, SIGTERM);
    EXPECT_EQ(openThen, before.size() + 3);
}

std::string passed;

std::size_t passInput(char* /*bytes*/, std::size_t /*capacity*/, void* /*context*/) {
    passed += "input ";
    return 0;
}

void passOutput(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    passed += "output ";
}

void passError(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    passed += "error ";
}

// The first pass begins when the child has written on both streams and left its input unread.
TEST_F(ForkExecvFailure, InputOutputAndErrorAreServedInThisOrder) {
    const quelm::test::TempDir directory;
    const std::string mark = directory.path("mark");
    beforeSelect = [&mark] {
        while (!std::filesystem::exists(mark)) {
            ::usleep(1000);
        }
    };
    const ArgVector arguments{"sh", "-c", "echo err >&2; echo out; : >" + mark + "; cat"};
    EXPECT_EQ(forkExecvGetOutErr(passInput, passOutput, passError, "/bin/sh", arguments.get(), "", false, {},
                                 nullptr),
              0);
    beforeSelect = nullptr;
    EXPECT_EQ(passed, "input output error ");
}

TEST_F(ForkExecvFailure, AnInterruptedSelectIsRepeated) {
    failSelect.give(3, EINTR);
    EXPECT_EQ(shell("echo out; exit 4"), 4);
    EXPECT_EQ(failSelect.executed, 3);
    EXPECT_EQ(output, "out\n");
}

TEST_F(ForkExecvFailure, AFailedReadIsThrownAndEndsTheChild) {
    failRead.give(1, EIO);
    expectThrown("readToCallback failed", EIO, "echo out; exec sleep 60");
}

TEST_F(ForkExecvFailure, AnInterruptedReadIsRepeated) {
    failRead.give(2, EINTR);
    EXPECT_EQ(shell("echo out"), 0);
    EXPECT_EQ(failRead.executed, 2);
    EXPECT_EQ(output, "out\n");
}

TEST_F(ForkExecvFailure, AFailedWriteIsThrownAndEndsTheChild) {
    failWrite.give(1, EIO);
    expectThrown("writeFromCallback failed", EIO, "exec sleep 60", "input");
}

TEST_F(ForkExecvFailure, AnInterruptedWriteIsRepeated) {
    failWrite.give(2, EINTR);
    EXPECT_EQ(shell("cat", "input"), 0);
    EXPECT_EQ(failWrite.executed, 2);
    EXPECT_EQ(output, "input");
}

TEST_F(ForkExecvFailure, MemoryThatCannotBeHadAfterTheForkEndsTheChild) {
    for (const int buffer : {0, 1, 2}) {
        failNewArray.give(1, ENOMEM, buffer);
        EXPECT_THROW(shell("exec sleep 60"), std::bad_alloc);
        EXPECT_EQ(failNewArray.executed, 1);
    }
}

TEST_F(ForkExecvFailure, TheWaitIsRepeatedAfterEintrAndEchild) {
    waitResult = -1;
    failWait.give(3, ECHILD);
    EXPECT_EQ(shell("exit 4"), 4);
    EXPECT_EQ(failWait.executed, 3);
    failWait.give(3, EINTR);
    EXPECT_EQ(shell("exit 4"), 4);
    EXPECT_EQ(failWait.executed, 3);
}

TEST_F(ForkExecvFailure, AnyOtherFailureOfTheWaitGivesMinusOne) {
    waitResult = -1;
    failWait.give(1, EINVAL);
    EXPECT_EQ(shell("exit 0"), -1);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST_F(ForkExecvFailure, AWaitThatReturnsNobodyGivesMinusOne) {
    waitResult = 0;
    failWait.give(1, 0);
    EXPECT_EQ(shell("exit 0"), -1);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST_F(ForkExecvFailure, AUserSwitchThatReturnsAFailureEndsTheChildWithTheReason) {
    ASSERT_NE(::getpwnam("nobody"), nullptr);
    userSwitchFails = true;
    EXPECT_EQ(shell("echo ran", "", "nobody"), 1);
    userSwitchFails = false;
    EXPECT_EQ(error, "forkExecvPipes: p_setuid() to 'nobody' failed: Operation not permitted\n");
    EXPECT_EQ(output, "");
}

TEST_F(ForkExecvFailure, ACommandThatThrewKeepsItsExitCode) {
    ExecCmd command("/bin/sh");
    command.addArg("-c").addArg("exit 3");
    failFork.give(1, EAGAIN);
    EXPECT_THROW(command.execute(), SystemError);
    EXPECT_TRUE(command.executed());
    EXPECT_EQ(command.exitCode(), -1);
    failFork.give(1, EAGAIN);
    EXPECT_EQ(command.runNoThrow(), -1);
    EXPECT_EQ(command.runNoThrow(), 3);
    failFork.give(1, EAGAIN);
    EXPECT_EQ(command.runNoThrow(), 3);
    failFork.give(1, EAGAIN);
    EXPECT_THROW(command.run(), quelm::ExSystemError<11>);
    EXPECT_EQ(command.exitCode(), 3);
}

} // namespace
