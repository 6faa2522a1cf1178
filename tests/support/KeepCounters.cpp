// Linked into the coverage build only. A process that ends by _exit, as every child does whose program could
// not be started, would lose what it has counted since the fork; the compiler keeps counters at exit and exec
// alone.
#include <cstdlib>

#include <sys/resource.h>
#include <unistd.h>

namespace {

bool maySizeBe(rlim_t wanted) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < wanted) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    return limit.rlim_cur >= wanted;
}

} // namespace

extern "C" {

void __gcov_dump();
[[noreturn]] void __real__exit(int status);

// Standard input makes room for the counter files: a test may have used up all other descriptors. The
// complaint about a file that cannot be written would reach a stream under test.
[[noreturn]] void __wrap__exit(int status) {
    constexpr rlim_t largestFile = 1 << 20;
    ::close(STDIN_FILENO);
    if (maySizeBe(largestFile)) {
        ::setenv("GCOV_ERROR_FILE", "/dev/null", 1);
        __gcov_dump();
    }
    __real__exit(status);
}
}
