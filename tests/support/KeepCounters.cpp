// Linked into the coverage build only. A process that ends by _exit, as every child does whose program could
// not be started, would lose what it has counted since the fork; the compiler keeps counters at exit and exec
// alone. Limits that a test has set are lifted for that. Where they cannot be, the counters are lost: the
// complaint about them would reach a stream under test.
#include <cstdlib>

#include <sys/resource.h>

namespace {

bool lifted(__rlimit_resource_t which, rlim_t wanted) {
    rlimit limit{};
    if (::getrlimit(which, &limit) != 0) {
        return false;
    }
    const rlimit enough{wanted, limit.rlim_max < wanted ? wanted : limit.rlim_max};
    return limit.rlim_cur >= wanted || ::setrlimit(which, &enough) == 0;
}

} // namespace

extern "C" {

void __gcov_dump();
[[noreturn]] void __real__exit(int status);

[[noreturn]] void __wrap__exit(int status) {
    constexpr rlim_t descriptors = 64;
    if (lifted(RLIMIT_NOFILE, descriptors) && lifted(RLIMIT_FSIZE, RLIM_INFINITY)) {
        ::setenv("GCOV_ERROR_FILE", "/dev/null", 1);
        __gcov_dump();
    }
    __real__exit(status);
}
}
