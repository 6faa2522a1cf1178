// A program and its arguments.
#pragma once

#include <string>

#include "lib/process/lib/ArgVector.h"

namespace quelm {

class CmdLine {
public:
    // The path becomes the first argument too.
    explicit CmdLine(const std::string& programPath) : programPath_(programPath), arguments_{programPath} {}

    const std::string& programPath() const { return programPath_; }
    const ArgVector& arguments() const { return arguments_; }

protected:
    std::string programPath_;
    ArgVector arguments_;
};

} // namespace quelm
