#include "tests/support/Faults.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

#include <dirent.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <unistd.h>

namespace quelm::test {

namespace {

struct Fault {
    bool armed = false;
    bool once = false;
    int passes = 0;
    int error = 0;
    int calls = 0;
};

// Plain storage: malloc is among the calls.
std::array<Fault, static_cast<std::size_t>(Call::count)> faults;

struct WaitAnswer {
    bool armed = false;
    pid_t answer = 0;
    int status = 0;
};
WaitAnswer waitAnswer;
int errnoAfterLookup = 0;
int tableSize = -1;
int recordedStatus = -1;
std::string addedEntry;
std::string hiddenEntry;
PollWatch pollWatch;
std::vector<std::string> replacement;

Fault& faultOf(Call call) {
    return faults[static_cast<std::size_t>(call)];
}

// True, with errno set, when this call is to fail.
bool fails(Call call) {
    Fault& fault = faultOf(call);
    ++fault.calls;
    if (!fault.armed) {
        return false;
    }
    if (fault.passes > 0) {
        --fault.passes;
        return false;
    }
    fault.armed = !fault.once;
    errno = fault.error;
    return true;
}

} // namespace

void failCall(Call call, int error, int passFirst) {
    faultOf(call) = {true, false, passFirst, error, 0};
}

void failCallOnce(Call call, int error) {
    faultOf(call) = {true, true, 0, error, 0};
}

void stopFailing(Call call) {
    faultOf(call).armed = false;
}

void countCalls(Call call) {
    faultOf(call) = {};
}

int callsOf(Call call) {
    return faultOf(call).calls;
}

void answerWaitpid(pid_t answer, int status) {
    waitAnswer = {true, answer, status};
}

void leaveErrnoAfterLookup(int error) {
    errnoAfterLookup = error;
}

void answerTableSize(int size) {
    tableSize = size;
}

void addDirectoryEntry(const std::string& name) {
    addedEntry = name;
}

void hideDirectoryEntry(const std::string& name) {
    hiddenEntry = name;
}

void watchPoll(PollWatch watch) {
    pollWatch = std::move(watch);
}

void recordExecv(int status) {
    recordedStatus = status;
}

void replaceExecv(const std::vector<std::string>& command) {
    replacement = command;
}

extern "C" {

int __real_chroot(const char* path);
int __real_close_range(unsigned first, unsigned last, int flags);
int __real_execv(const char* path, char* const argv[]);
int __real_fcntl(int descriptor, int command, ...);
pid_t __real_fork();
int __real_getdtablesize();
group* __real_getgrgid(gid_t gid);
group* __real_getgrnam(const char* name);
passwd* __real_getpwnam(const char* name);
passwd* __real_getpwuid(uid_t uid);
int __real_initgroups(const char* user, gid_t gid);
void* __real_malloc(std::size_t size);
DIR* __real_opendir(const char* path);
int __real_pipe(int* ends);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
dirent* __real_readdir(DIR* directory);
void* __real_realloc(void* block, std::size_t size);
int __real_setgid(gid_t gid);
int __real_setuid(uid_t uid);
pid_t __real_waitpid(pid_t pid, int* status, int options);

int __wrap_chroot(const char* path) {
    return fails(Call::chroot) ? -1 : __real_chroot(path);
}

int __wrap_close_range(unsigned first, unsigned last, int flags) {
    return fails(Call::closeRange) ? -1 : __real_close_range(first, last, flags);
}

int __wrap_execv(const char* path, char* const argv[]) {
    if (!replacement.empty()) {
        std::vector<char*> arguments;
        for (std::string& argument : replacement) {
            arguments.push_back(argument.data());
        }
        arguments.push_back(nullptr);
        return __real_execv(arguments[0], arguments.data());
    }
    if (recordedStatus == -1) {
        return __real_execv(path, argv);
    }
    std::string line = path;
    for (char* const* argument = argv; *argument != nullptr; ++argument) {
        line += std::string(" [") + *argument + "]";
    }
    line += '\n';
    (void)!::write(STDOUT_FILENO, line.data(), line.size());
    ::_exit(recordedStatus);
}

int __wrap_fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return fails(Call::fcntl) ? -1 : __real_fcntl(descriptor, command, argument);
}

pid_t __wrap_fork() {
    return fails(Call::fork) ? -1 : __real_fork();
}

int __wrap_getdtablesize() {
    return tableSize == -1 ? __real_getdtablesize() : tableSize;
}

group* __wrap_getgrgid(gid_t gid) {
    return fails(Call::getgrgid) ? nullptr : __real_getgrgid(gid);
}

group* __wrap_getgrnam(const char* name) {
    return fails(Call::getgrnam) ? nullptr : __real_getgrnam(name);
}

passwd* __wrap_getpwnam(const char* name) {
    if (fails(Call::getpwnam)) {
        return nullptr;
    }
    passwd* found = __real_getpwnam(name);
    if (found != nullptr && errnoAfterLookup != 0) {
        errno = errnoAfterLookup;
    }
    return found;
}

passwd* __wrap_getpwuid(uid_t uid) {
    return fails(Call::getpwuid) ? nullptr : __real_getpwuid(uid);
}

int __wrap_initgroups(const char* user, gid_t gid) {
    return fails(Call::initgroups) ? -1 : __real_initgroups(user, gid);
}

void* __wrap_malloc(std::size_t size) {
    return fails(Call::malloc) ? nullptr : __real_malloc(size);
}

DIR* __wrap_opendir(const char* path) {
    return fails(Call::opendir) ? nullptr : __real_opendir(path);
}

int __wrap_pipe(int* ends) {
    return fails(Call::pipe) ? -1 : __real_pipe(ends);
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
    if (pollWatch) {
        if (const std::optional<int> answer = pollWatch(descriptors, count, timeout)) {
            return *answer;
        }
    }
    return fails(Call::poll) ? -1 : __real_poll(descriptors, count, timeout);
}

ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    return fails(Call::read) ? -1 : __real_read(descriptor, buffer, size);
}

dirent* __wrap_readdir(DIR* directory) {
    if (fails(Call::readdir)) {
        return nullptr;
    }
    static dirent added;
    if (!addedEntry.empty()) {
        added = {};
        addedEntry.copy(added.d_name, sizeof added.d_name - 1);
        addedEntry.clear();
        return &added;
    }
    dirent* entry = nullptr;
    do {
        entry = __real_readdir(directory);
    } while (entry != nullptr && entry->d_name == hiddenEntry);
    return entry;
}

void* __wrap_realloc(void* block, std::size_t size) {
    return fails(Call::realloc) ? nullptr : __real_realloc(block, size);
}

int __wrap_setgid(gid_t gid) {
    return fails(Call::setgid) ? -1 : __real_setgid(gid);
}

int __wrap_setuid(uid_t uid) {
    return fails(Call::setuid) ? -1 : __real_setuid(uid);
}

pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
    if (waitAnswer.armed) {
        waitAnswer.armed = false;
        if (status != nullptr) {
            *status = waitAnswer.status;
        }
        return waitAnswer.answer;
    }
    return fails(Call::waitpid) ? -1 : __real_waitpid(pid, status, options);
}

} // extern "C"

} // namespace quelm::test
