#include "lib/process/lib/ExecCmd.h"

#include <cerrno>
#include <cstring>

#include <boost/format.hpp>

#include "lib/process/lib/ForkExecv.h"

namespace quelm {

namespace {

// The place that a failure report names is part of its interface and does not follow the code.
constexpr ThrowPoint reportPoint{"void quelm::ExecCmd::reportError() const", "lib/process/lib/ExecCmd", 76};

std::string section(const char* label, const std::string& text) {
    if (text.empty()) {
        return {};
    }
    return (boost::format("%1% is\n%2%%3%") % label % text % (text.back() == '\n' ? "" : "\n")).str();
}

std::string outputPart(const std::string& stream, const std::string& text) {
    return text.empty() ? " \nNo output on " + stream + " were performed by the utility"
                        : " \nThe output on " + stream + " was: \n" + text;
}

} // namespace

ExecCmd& ExecCmd::addArg(const std::string& argument) {
    arguments_.add(argument);
    return *this;
}

void ExecCmd::setEnv(const std::string& name, const std::string& value) {
    environment_[name] = value;
}

int ExecCmd::run() {
    if (execute() != 0) {
        reportError();
    }
    return exitCode_;
}

int ExecCmd::runNoThrow() noexcept {
    try {
        return execute();
    } catch (...) {
        return exitCode_;
    }
}

// errno is read as the run left it: nothing may come between the two.
int ExecCmd::execute() {
    executed_ = true;
    errno = 0;
    exitCode_ = forkExecvGetOutErr(standardInput_, &standardOutput_, &standardError_, programPath_,
                                   arguments_.get(), user_, changeToHome_, environment_);
    systemErrorNumber_ = errno;
    systemErrorSet_ = systemErrorNumber_ != 0;
    lastError_ = systemErrorSet_ ? std::strerror(systemErrorNumber_) : "";
    return exitCode_;
}

std::string ExecCmd::commandText() const {
    return shellText(arguments_.get());
}

void ExecCmd::reportError() const {
    boost::format message("Execution of %1% failed with return code %2%.\n%3%%4%%5%%6%");
    message % commandText() % exitCode_ % section("Stdin", standardInput_) %
        section("Stdout", standardOutput_) % section("Stderr", standardError_) %
        section("Last error", lastError_);
    throw Exc<&ExecCmd::Failed, ExDefault>(Failed, message.str(), reportPoint);
}

std::string ExecCmd::shortReport() const {
    return "The return code was " + std::to_string(exitCode_) + outputPart("STDOUT", standardOutput_) +
           outputPart("STDERR", standardError_) +
           (lastError_.empty() ? std::string() : " \nThe last error was: \n" + lastError_);
}

} // namespace quelm
