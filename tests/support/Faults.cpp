#include "tests/support/Faults.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>
#include <utility>

#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <openssl/sha.h>
#include <pwd.h>
#include <unistd.h>

namespace quelm::test {

namespace {

struct Fault {
    bool armed = false;
    int error = 0;
    Which which;
    pid_t process = 0;
    int calls = 0;
    std::function<void()> watch;
};

// Plain storage: malloc is among the calls.
std::array<Fault, static_cast<std::size_t>(Call::count)> faults;

Fault& faultOf(Call call) {
    return faults[static_cast<std::size_t>(call)];
}

// True, with errno set, when this call is to fail.
bool fails(Call call) {
    Fault& fault = faultOf(call);
    if (fault.watch) {
        fault.watch();
    }
    ++fault.calls;
    if (!fault.armed || (fault.which.hereOnly && fault.process != ::getpid())) {
        return false;
    }
    if (fault.which.skip > 0) {
        --fault.which.skip;
        return false;
    }
    fault.which.times -= fault.which.times > 0 ? 1 : 0;
    fault.armed = fault.which.times != 0;
    errno = fault.error;
    return true;
}

std::size_t transferOf(std::size_t wanted) {
    const std::size_t longest = conditions().longestTransfer;
    return longest != 0 ? std::min(wanted, longest) : wanted;
}

} // namespace

void failCall(Call call, int error, const Which& which) {
    faultOf(call) = {true, error, which, ::getpid(), 0, std::move(faultOf(call).watch)};
}
void stopFailing(Call call) {
    faultOf(call).armed = false;
}
void countCalls(Call call) {
    failCall(call, 0);
    stopFailing(call);
}
int callsOf(Call call) {
    return faultOf(call).calls;
}
void watchCall(Call call, std::function<void()> watch) {
    faultOf(call).watch = std::move(watch);
}
Conditions& conditions() {
    static auto* const present = new Conditions; // calls are made until the very end
    return *present;
}

extern "C" {

// A call that only ever fails as a whole.
#define WRAPPED(result, name, parameters, arguments, failure)                                                \
    result __real_##name parameters;                                                                         \
    result __wrap_##name parameters {                                                                        \
        return fails(Call::name) ? (failure) : __real_##name arguments;                                      \
    }

WRAPPED(int, chroot, (const char* path), (path), -1)
WRAPPED(int, close_range, (unsigned first, unsigned last, int flags), (first, last, flags), -1)
WRAPPED(char*, curl_easy_escape, (CURL * handle, const char* text, int length), (handle, text, length),
        nullptr)
WRAPPED(char*, curl_easy_unescape, (CURL * handle, const char* text, int length, int* result),
        (handle, text, length, result), nullptr)
WRAPPED(pid_t, fork, (), (), -1)
WRAPPED(group*, getgrgid, (gid_t gid), (gid), nullptr)
WRAPPED(group*, getgrnam, (const char* name), (name), nullptr)
WRAPPED(passwd*, getpwuid, (uid_t uid), (uid), nullptr)
WRAPPED(int, initgroups, (const char* user, gid_t gid), (user, gid), -1)
WRAPPED(int, kill, (pid_t process, int number), (process, number), -1)
WRAPPED(void*, malloc, (std::size_t size), (size), nullptr)
WRAPPED(DIR*, opendir, (const char* path), (path), nullptr)
WRAPPED(int, pipe, (int* ends), (ends), -1)
WRAPPED(int, setgid, (gid_t gid), (gid), -1)
WRAPPED(int, setuid, (uid_t uid), (uid), -1)
WRAPPED(int, SHA1_Final, (unsigned char* digest, SHA_CTX* context), (digest, context), 0)
WRAPPED(int, SHA1_Init, (SHA_CTX * context), (context), 0)
WRAPPED(int, SHA1_Update, (SHA_CTX * context, const void* data, std::size_t size), (context, data, size), 0)
WRAPPED(char*, strdup, (const char* text), (text), nullptr)
#undef WRAPPED

// The descriptor is closed all the same.
int __real_close(int descriptor);
int __wrap_close(int descriptor) {
    const int result = __real_close(descriptor);
    return fails(Call::close) ? -1 : result;
}

int __real_execv(const char* path, char* const argv[]);
int __wrap_execv(const char* path, char* const argv[]) {
    if (conditions().recordedExec) {
        std::string line = path;
        for (char* const* argument = argv; *argument != nullptr; ++argument) {
            line += std::string(" [") + *argument + "]";
        }
        line += '\n';
        (void)!::write(STDOUT_FILENO, line.data(), line.size());
        ::_exit(*conditions().recordedExec);
    }
    std::vector<char*> arguments;
    for (std::string& argument : conditions().execInstead) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    return arguments[0] != nullptr ? __real_execv(arguments[0], arguments.data()) : __real_execv(path, argv);
}

int __real_fcntl(int descriptor, int command, ...);
int __wrap_fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return fails(Call::fcntl) ? -1 : __real_fcntl(descriptor, command, argument);
}

int __real_getdtablesize();
int __wrap_getdtablesize() {
    const int answer = conditions().tableSize;
    return answer == -1 ? __real_getdtablesize() : answer;
}

passwd* __real_getpwnam(const char* name);
passwd* __wrap_getpwnam(const char* name) {
    if (fails(Call::getpwnam)) {
        return nullptr;
    }
    passwd* found = __real_getpwnam(name);
    if (found != nullptr && conditions().errnoAfterLookup != 0) {
        errno = conditions().errnoAfterLookup;
    }
    return found;
}

int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode) {
    conditions().openFlags.push_back(flags);
    if (conditions().nonBlockingOpenError != 0 && (flags & O_NONBLOCK) != 0) {
        errno = conditions().nonBlockingOpenError;
        return -1;
    }
    return fails(Call::open) ? -1 : __real_open(path, flags, mode);
}

ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    return fails(Call::read) ? -1 : __real_read(descriptor, buffer, transferOf(size));
}

dirent* __real_readdir(DIR* directory);
dirent* __wrap_readdir(DIR* directory) {
    if (fails(Call::readdir)) {
        return nullptr;
    }
    static dirent added{};
    if (!conditions().addedEntry.empty()) {
        std::exchange(conditions().addedEntry, "").copy(added.d_name, sizeof added.d_name - 1);
        return &added;
    }
    dirent* entry = nullptr;
    do {
        entry = __real_readdir(directory);
    } while (entry != nullptr && entry->d_name == conditions().hiddenEntry);
    return entry;
}

void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
    conditions().largestRealloc = std::max(conditions().largestRealloc, size);
    return fails(Call::realloc) ? nullptr : __real_realloc(block, size);
}

int __real_select(int width, fd_set* reading, fd_set* writing, fd_set* others, timeval* timeout);
int __wrap_select(int width, fd_set* reading, fd_set* writing, fd_set* others, timeval* timeout) {
    if (const SelectWatch& watch = conditions().onSelect) {
        if (const std::optional<int> answer = watch(width, reading, writing, timeout)) {
            return *answer;
        }
    }
    return fails(Call::select) ? -1 : __real_select(width, reading, writing, others, timeout);
}

pid_t __real_waitpid(pid_t pid, int* status, int options);
pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
    if (const auto answer = std::exchange(conditions().waitAnswer, std::nullopt)) {
        if (status != nullptr) {
            *status = answer->second;
        }
        return answer->first;
    }
    return fails(Call::waitpid) ? -1 : __real_waitpid(pid, status, options);
}

ssize_t __real_write(int descriptor, const void* buffer, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* buffer, std::size_t size) {
    return fails(Call::write) ? -1 : __real_write(descriptor, buffer, transferOf(size));
}

} // extern "C"

} // namespace quelm::test

void* operator new(std::size_t size) {
    using namespace quelm::test;
    if (LimitedNew::grants == 0 && LimitedNew::failures != 0) {
        LimitedNew::failures -= LimitedNew::failures > 0 ? 1 : 0;
        throw std::bad_alloc();
    }
    LimitedNew::grants -= LimitedNew::grants > 0 ? 1 : 0;
    void* const block = std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}
void* operator new[](std::size_t size) {
    return ::operator new(size);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
