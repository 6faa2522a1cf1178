// Any text as a package file. Only the reader is called: nothing that the file names is run.
#include <optional>
#include <string>

#include <boost/property_tree/exceptions.hpp>

#include "base/QuelmUtilException.h"
#include "commands/PackageHandlers.h"
#include "fuzz/Fuzz.h"
#include "registry/PhpHandler.h"
#include "tests/registry/TestRegistry.h"

namespace quelm::fuzz {

namespace {

struct Reading {
    std::optional<PhpHandler> handler;
    std::string failure;

    bool operator==(const Reading&) const = default;
};

// Other exceptions than the two that the reader promises end the run.
Reading read(const std::string& text) {
    static MemoryFile file;
    file.fill(text);
    try {
        return {readPackageFile(file.path()), ""};
    } catch (const boost::property_tree::ptree_error& failure) {
        return {std::nullopt, failure.what()};
    } catch (const QuelmUtilException& failure) {
        return {std::nullopt, failure.what()};
    }
}

enum class IdLine { written, leftOut };

std::string fileOf(const PhpHandler& handler, IdLine id) {
    std::string text = "displayname=" + handler.displayname + "\npath=" + handler.path +
                       "\nclipath=" + handler.clipath + "\nphpini=" + handler.phpini +
                       "\ntype=" + std::string(formatHandlerType(handler));
    if (handler.type == PhpHandlerType::fpm) {
        text += "\nservice=" + handler.service + "\npoold=" + handler.poold;
    }
    return text + (id == IdLine::written ? "\nid=" + handler.id : "") + "\n";
}

void checkHandler(const PhpHandler& handler) {
    require(handler.system && handler.version.empty(), "a package handler is a system one without version");
    require(handler.type == PhpHandlerType::fpm || (handler.service.empty() && handler.poold.empty()),
            "service and pool directory belong to fpm");
    require(read(fileOf(handler, IdLine::written)).handler == handler, "written out, it is read as it was");
    PhpHandler unnamed = handler;
    computeHandlerId(unnamed);
    require(read(fileOf(handler, IdLine::leftOut)).handler == unnamed, "without an id one is computed");
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quelm::fuzz;
    const std::string text = textOf(data, size);
    const Reading reading = read(text);
    require(reading.handler.has_value() == reading.failure.empty(), "a failure has a text");
    if (reading.handler) {
        checkHandler(*reading.handler);
    }
    const std::string section = "no such section";
    if (text.find(section) == std::string::npos) {
        require(read(text + "\n; note\n[" + section + "]\npath=/other\nid=other\n") == reading,
                "comments and what stands in sections do not count");
    }
    return 0;
}
