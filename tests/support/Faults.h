// Calls of the C library that fail or do only a part when a test says so. The linker wraps the calls for the
// unit tests (tests/CMakeLists.txt), so the product's objects meet them too.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/select.h>
#include <sys/types.h>

namespace quelm::test {

enum class Call {
    chroot,
    close,
    close_range,
    curl_easy_escape,
    curl_easy_unescape,
    fcntl,
    fork,
    getgrgid,
    getgrnam,
    getpwnam,
    getpwuid,
    initgroups,
    kill,
    malloc,
    open,
    opendir,
    pipe,
    read,
    readdir,
    realloc,
    select,
    setgid,
    setuid,
    SHA1_Final,
    SHA1_Init,
    SHA1_Update,
    strdup,
    waitpid,
    write,
    count
};

// Which calls fail: `times` of them (-1: all) after the first `skip`, in this process only or in its children
// too.
struct Which {
    int skip = 0;
    int times = -1;
    bool hereOnly = false;
};

// From now on the call fails with `error` in errno. Counts the calls anew; those that fail are counted too.
void failCall(Call call, int error, const Which& which = {});
void stopFailing(Call call);

// The same for the length of a block.
class FailedCall {
public:
    FailedCall(Call call, int error, const Which& which = {}) : call_(call) { failCall(call, error, which); }
    FailedCall(const FailedCall&) = delete;
    FailedCall& operator=(const FailedCall&) = delete;
    ~FailedCall() { stopFailing(call_); }

private:
    Call call_;
};

// The calls since failCall or countCalls.
void countCalls(Call call);
int callsOf(Call call);

// From now on `watch` is called before each such call; an empty function ends it.
void watchCall(Call call, std::function<void()> watch);

// From now on `watch` sees the arguments of every select before it is made; a value that it returns is the
// answer, and select is not called. An empty function ends it.
using SelectWatch =
    std::function<std::optional<int>(int width, fd_set* reading, fd_set* writing, timeval* timeout)>;
void watchSelect(SelectWatch watch);

// From now on a read or write moves at most so many bytes; 0 ends it.
void limitTransfers(std::size_t longest);

// The next read finds these bytes appended to its file.
void growBeforeRead(const std::string& bytes);

// The flags of the opens since countCalls(Call::open), and the largest realloc since
// countCalls(Call::realloc).
const std::vector<int>& openFlags();
std::size_t largestRealloc();

// A non-blocking open fails with this error from now on; 0 ends it.
void refuseNonBlockingOpen(int error);

// The next waitpid answers so, without waiting for anybody.
void answerWaitpid(pid_t answer, int status);

// From now on getpwnam leaves this errno when it has found the user.
void leaveErrnoAfterLookup(int error);

// From now on getdtablesize answers so; -1 ends it.
void answerTableSize(int size);

// The next readdir gives an entry of this name.
void addDirectoryEntry(const std::string& name);

// From now on readdir leaves out the entries of this name.
void hideDirectoryEntry(const std::string& name);

// From now on execv prints "PATH", then " [ARGUMENT]" for each argument and a newline on descriptor 1 and
// ends the process with `status`.
void recordExecv(int status);

// From now on execv runs this program instead; the first of `command` is its path and its argument 0.
void replaceExecv(const std::vector<std::string>& command);

// While it lives, operator new throws std::bad_alloc after `granted` successes, `times` times (-1: always).
class LimitedNew {
public:
    explicit LimitedNew(int granted, int times = -1);
    LimitedNew(const LimitedNew&) = delete;
    LimitedNew& operator=(const LimitedNew&) = delete;
    ~LimitedNew();
};

} // namespace quelm::test
