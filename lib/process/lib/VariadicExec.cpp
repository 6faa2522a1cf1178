#include "lib/process/lib/VariadicExec.h"

#include <cstdarg>

#include "lib/process/lib/ArgumentList.h"
#include "lib/process/lib/ExecReport.h"
#include "lib/process/lib/ForkCapture.h"
#include "lib/process/lib/ForkPipes.h"

namespace quelm {

pid_t fork_execv(int input, int output, int error, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return startProgram({input, output, error}, path, arguments.data(), "fork_execv: fork() failed");
}

pid_t fork_execl_pipes(int input, int output, int error, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return fork_execv_pipes(input, output, error, path, arguments.data());
}

int fork_execl_getouterr(char** output, char** error, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return fork_execv_getouterr(output, error, path, arguments.data());
}

int fork_execl_getout(char** output, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return fork_execv_getout(output, path, arguments.data());
}

int execl_and_report(bool quiet, const char* path, ...) {
    va_list list;
    va_start(list, path);
    const ArgumentList arguments(path, list);
    va_end(list);
    return exec_and_report(path, arguments.data(), quiet);
}

} // namespace quelm
