// Calls of the C library that fail or do only a part when a test says so. The linker wraps the calls for the
// unit tests (tests/CMakeLists.txt), so the product's objects meet them too.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/select.h>
#include <sys/types.h>

namespace quelm::test {

// clang-format off
enum class Call {
    chroot, close, close_range, curl_easy_escape, curl_easy_unescape, fcntl, fork, getgrgid, getgrnam,
    getpwnam, getpwuid, initgroups, kill, malloc, open, opendir, pipe, read, readdir, realloc, select,
    setgid, setuid, SHA1_Final, SHA1_Init, SHA1_Update, strdup, waitpid, write, count
};
// clang-format on

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

// Sees the arguments of a select before it is made; a value that it returns is the answer, and select is not
// called.
using SelectWatch =
    std::function<std::optional<int>(int width, fd_set* reading, fd_set* writing, timeval* timeout)>;

// What else a test can change about the calls, where everything is off at first, and see of them.
struct Conditions {
    std::size_t longestTransfer = 0;                 // a read or write moves at most so many bytes
    int nonBlockingOpenError = 0;                    // a non-blocking open fails with this error
    int errnoAfterLookup = 0;                        // getpwnam leaves this errno when it has found the user
    int tableSize = -1;                              // getdtablesize answers so
    std::string addedEntry;                          // the next readdir gives an entry of this name
    std::string hiddenEntry;                         // readdir leaves out the entries of this name
    std::optional<std::pair<pid_t, int>> waitAnswer; // the next waitpid's answer and status; it does not wait
    SelectWatch onSelect;
    std::optional<int> recordedExec; // execv prints "PATH", " [ARGUMENT]" for each and a newline, and ends so
    std::vector<std::string> execInstead; // execv runs this; the first is its path and its argument 0
    std::vector<int> openFlags;           // the flags of the opens so far
    std::size_t largestRealloc = 0;       // so far
};
Conditions& conditions();

// While it lives, operator new throws std::bad_alloc after `granted` successes, `times` times (-1: always).
class LimitedNew {
public:
    explicit LimitedNew(int granted, int times = -1) {
        conditions(); // makes its own first
        grants = granted;
        failures = times;
    }
    LimitedNew(const LimitedNew&) = delete;
    LimitedNew& operator=(const LimitedNew&) = delete;
    ~LimitedNew() { grants = -1; }

    static inline int grants = -1;
    static inline int failures = -1;
};

} // namespace quelm::test
