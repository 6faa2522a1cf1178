#include <exception>

#include <syslog.h>

#include "base/FatalMessage.h"
#include "base/Log.h"
#include "base/ProcessState.h"
#include "cli/Dispatcher.h"
#include "cli/ErrorReport.h"

int main(int argc, char** argv) {
    quelm::prepareProcess();
    try {
        quelm::setProgramPath(argc > 0 ? argv[0] : nullptr);
        quelm::log_init(nullptr, LOG_INFO, LOG_USER, LOG_PID, "tamrix");
        return quelm::dispatch(argc, argv);
    } catch (...) {
        return quelm::reportException(std::current_exception());
    }
}
