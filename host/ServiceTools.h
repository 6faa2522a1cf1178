// Calls of the panel's service-control tools. All of them inherit our standard input.
#pragma once

#include <string>

#include "host/SiblingTools.h"

namespace quelm {

// Throws QuelmUtilException "NAME: service not found." unless `quelmrc NAME exists` exits with 0; a name that
// ends in ".service" gets a hint. A tool that cannot be started or is killed counts as "not found".
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
