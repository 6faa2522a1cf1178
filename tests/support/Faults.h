// System calls that fail when a test says so. A test executable that uses it links Faults.cpp and has each of
// the symbols in faultSymbols of tests/support/Faults.cmake wrapped by the linker.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/types.h>

namespace quelm::test {

enum class Call {
    chroot,
    closeRange,
    fcntl,
    fork,
    getgrgid,
    getgrnam,
    getpwnam,
    getpwuid,
    initgroups,
    malloc,
    opendir,
    pipe,
    poll,
    read,
    readdir,
    realloc,
    setgid,
    setuid,
    waitpid,
    count
};

// After `passFirst` more calls every one fails with `error` in errno; each is counted all the same.
void failCall(Call call, int error, int passFirst = 0);
void failCallOnce(Call call, int error);
void stopFailing(Call call);

// A call that fails for the length of a block.
class FailedCall {
public:
    FailedCall(Call call, int error, int passFirst = 0) : call_(call) { failCall(call, error, passFirst); }
    FailedCall(const FailedCall&) = delete;
    FailedCall& operator=(const FailedCall&) = delete;
    ~FailedCall() { stopFailing(call_); }

private:
    Call call_;
};

// callsOf tells the number of calls since failCall or countCalls.
void countCalls(Call call);
int callsOf(Call call);

// The next waitpid answers so, without waiting for anybody.
void answerWaitpid(pid_t answer, int status);

// From now on getpwnam leaves this errno when it has found the user.
void leaveErrnoAfterLookup(int error);

// From now on getdtablesize answers so.
void answerTableSize(int size);

// The next readdir gives an entry of this name.
void addDirectoryEntry(const std::string& name);

// From now on readdir passes over the entries of this name.
void hideDirectoryEntry(const std::string& name);

// From now on `watch` sees the arguments of every poll before it is made; a value that it returns is the
// answer, and nothing is polled. An empty function ends it.
using PollWatch = std::function<std::optional<int>(const pollfd* descriptors, nfds_t count, int timeout)>;
void watchPoll(PollWatch watch);

// From now on execv prints "PATH", then " [ARGUMENT]" for each argument and a newline on descriptor 1 and
// ends the process with `status`.
void recordExecv(int status);

// From now on execv runs this program instead; the first of `command` is its path and its argument 0.
void replaceExecv(const std::vector<std::string>& command);

} // namespace quelm::test
