// The panel's tools that the commands run.
#pragma once

#include <string>
#include <vector>

#include "base/PanelTools.h"

namespace quelm {

// All three throw SystemError when no child can be started. A missing or killed tool counts as failed.

// `depotctl --set-dirty-flag`. Throws QuelmUtilException with the tool's standard error unless it exits with
// 0.
void setDepotDirtyFlag(const std::string& root = panelRoot);

// `quotagate` sets the default limit for all the services in one call, also for an empty list. A failure is
// one message on standard error and no exception.
void setDefaultUlimit(const std::vector<std::string>& services, const std::string& root = panelRoot);

// Throws QuelmUtilException "NAME: service not found." unless `quelmrc NAME exists` exits with 0; a name that
// ends in ".service" gets a hint. The tool inherits our standard input.
void checkServiceExists(const std::string& service, const std::string& root = panelRoot);

// `quelmrc SERVICE ACTION`; a failure is reported on both streams. Returns the exit code, or -1.
int runServiceAction(const std::string& service, const std::string& action,
                     const std::string& root = panelRoot);

// "is running" for status 0, "is stopped" for any other, on standard output.
void printServiceStatus(int status);

// `svc_enlist --enable SERVICE` and `svc_enlist --disable SERVICE`, silent. Return the exit code, or -1.
int enableService(const std::string& service, const std::string& root = panelRoot);
int disableService(const std::string& service, const std::string& root = panelRoot);

} // namespace quelm
