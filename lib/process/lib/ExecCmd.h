// A command: its arguments, environment, input and user, and the results of its run.
#pragma once

#include <map>
#include <string>

#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Exceptions.h"

namespace quelm {

// Build, fill, run once, read. A further run appends to the standard output and standard error that are
// there already and overwrites the exit code and the error fields. Copies are independent.
class ExecCmd : public CmdLine {
public:
    // The tag of the exception of a failed run.
    static constexpr const char* Failed = "ExecCmd::ExFailed";

    using CmdLine::CmdLine;
    ExecCmd(const ExecCmd&) = default;
    ExecCmd& operator=(const ExecCmd&) = default;

    // The order of the virtual functions is part of the binary interface; add new ones at the end.
    virtual ~ExecCmd() = default;

    // Appends an argument; calls can be chained.
    virtual ExecCmd& addArg(const std::string& argument);

    // Sets or replaces one variable of the child's environment, on top of the inherited ones.
    virtual void setEnv(const std::string& name, const std::string& value);

    // execute; a result other than 0 is thrown by reportError. Returns 0. Throws what execute throws.
    virtual int run();

    // execute; never throws. Returns its result or, when it threw, the exit code as it stands.
    virtual int runNoThrow() noexcept;

    // Runs the command with forkExecvGetOutErr and returns the exit code: 0 to 255, or -1 when the child was
    // killed by a signal or could not be waited for; 1 with a text in both outputs when the program could not
    // be started. Throws SystemError; the exit code is then what it was before. A failed pipe ends the
    // process.
    virtual int execute();

    // The arguments as shellText writes them.
    std::string commandText() const;

    // Throws Exc<&ExecCmd::Failed, ExDefault> with a message that lays out the command, its exit code and
    // those of its texts that are not empty.
    [[noreturn]] void reportError() const;

    // The run in short: exit code, both outputs and the last error.
    std::string shortReport() const;

    // What the child reads; empty at first.
    void setStandardInput(const std::string& text) { standardInput_ = text; }
    // The user that the child runs as; empty, the initial value, means no switch.
    void setUser(const std::string& user) { user_ = user; }
    // Whether a switch of the user also changes to that user's home directory; true at first.
    void setChangeToHome(bool change) { changeToHome_ = change; }

    const std::map<std::string, std::string>& environment() const { return environment_; }
    const std::string& standardOutput() const { return standardOutput_; }
    const std::string& standardError() const { return standardError_; }
    // Set at the start of every execution.
    bool executed() const { return executed_; }
    // errno was not 0 after the run, as after every run that had to wait for output (EAGAIN), also after a
    // successful one.
    bool systemErrorSet() const { return systemErrorSet_; }
    int systemErrorNumber() const { return systemErrorNumber_; }
    // -1 until a run has ended normally.
    int exitCode() const { return exitCode_; }
    // The text of the system error number; empty for 0.
    const std::string& lastError() const { return lastError_; }

private:
    std::string standardInput_;
    std::string user_;
    bool changeToHome_ = true;
    std::map<std::string, std::string> environment_;
    std::string standardOutput_;
    std::string standardError_;
    bool executed_ = false;
    bool systemErrorSet_ = false;
    int systemErrorNumber_ = 0;
    int exitCode_ = -1;
    std::string lastError_;
};

} // namespace quelm
