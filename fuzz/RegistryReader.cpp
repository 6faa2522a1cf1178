// Any text as the registry file: a refusal tells where what is acceptable ends, what is accepted survives
// being written and read again.
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "base/QuelmUtilException.h"
#include "fuzz/Fuzz.h"
#include "registry/PhpHandler.h"
#include "registry/RegistryFile.h"
#include "registry/RegistryWriter.h"
#include "tests/registry/TestRegistry.h"

namespace quelm::fuzz {

namespace {

constexpr std::string_view intro = "can not parse php_versions_info object : ";

// True for the text of a failure, without the path before it, that holds a report.
bool isReport(std::string_view failure) {
    return failure.starts_with(intro);
}

// Where the reader stopped. What it says about the byte there is compared in tests/registry/documents.
std::size_t offsetOf(const std::string& report) {
    const std::string before = " Error occured at offset ";
    const std::size_t at = report.rfind(before);
    require(isReport(report) && at != std::string::npos && report.ends_with("'. "),
            "a report tells the offset and the character, and no error of the system: " + report);
    return std::strtoull(report.c_str() + at + before.size(), nullptr, 10);
}

struct Reading {
    std::vector<PhpHandler> records;
    std::string failure;
    std::string warnings;

    bool operator==(const Reading&) const = default;
};

// Other exceptions than the promised one end the run.
Reading read(std::string_view text) {
    static MemoryFile file;
    file.fill(text);
    HandlerRegistry registry = test::registryOf({test::handlerWithId("stale")});
    Reading reading;
    const test::CaughtErrors errors;
    errno = ENOENT; // left by an earlier step; no report may tell of it
    try {
        load(registry, file.path());
    } catch (const QuelmUtilException& failure) {
        const std::string prefix = "Error reading " + file.path() + ": ";
        reading.failure = failure.what();
        require(reading.failure.starts_with(prefix), "a failure names the file");
        reading.failure.erase(0, prefix.size());
        require(registry.empty(), "a failure empties the registry");
    }
    reading.records.assign(registry.begin(), registry.end());
    reading.warnings = errors.text();
    return reading;
}

void checkRefusal(std::string_view text, const Reading& reading) {
    const std::size_t offset = offsetOf(reading.failure);
    require(reading.warnings.empty(), "no warning before the whole text is accepted");
    require(offset <= text.size(), "the reader stops within the text");
    if (offset > 0) {
        require(offsetOf(read(text.substr(0, offset)).failure) == offset,
                "what stands before the stop had been accepted");
    }
}

void checkType(const Reading& reading) {
    const std::string prefix = "Unknown php handler type : ";
    require(reading.failure.starts_with(prefix), "the failure is a known one: " + reading.failure);
    const std::string type = reading.failure.substr(prefix.size());
    require(type != "fpm" && !isClassicTypeName(type), "a known type is not refused");
}

std::string stored(const Reading& reading, bool forStorage) {
    HandlerRegistry registry;
    for (const PhpHandler& handler : reading.records) {
        registry.append(handler);
    }
    std::ostringstream stream;
    writeRegistryJson(registry, stream, forStorage);
    return stream.str();
}

Reading withoutUnwritten(Reading reading) {
    for (PhpHandler& handler : reading.records) {
        if (handler.type != PhpHandlerType::fpm) {
            handler.service.clear();
            handler.poold.clear();
        }
    }
    reading.warnings.clear();
    return reading;
}

// What the file holds, listed without a registry.
std::string listed(std::string_view text) {
    static MemoryFile file;
    file.fill(text);
    const test::CaughtErrors errors;
    std::ostringstream stream;
    writeRegistryJson(RegistrySnapshot(file.path()).handlers(), stream, false);
    return stream.str();
}

void checkAccepted(const std::string& text, const Reading& reading) {
    require(reading.warnings.empty() ||
                reading.warnings.starts_with("[Warning] conflicting handler with id `"),
            "the only warning is that of a conflict");
    std::set<std::string> ids;
    for (const PhpHandler& handler : reading.records) {
        require(ids.insert(handler.id).second, "no two records have the same id: " + handler.id);
    }
    if (!text.empty()) {
        require(read(text + "}]\"\\ {") == reading, "what follows the document does not count");
    }
    const std::string document = stored(reading, true);
    const Reading again = read(document);
    // What is too long is stored as null and a control byte by its number; neither is read again.
    const bool survives =
        document.find(":null") == std::string::npos && document.find("\\u00") == std::string::npos;
    if (survives || again.failure.empty()) {
        require(again == withoutUnwritten(reading), "written and read again, the records are the same");
        require(stored(again, true) == document, "written again, the document is the same");
    } else {
        require(isReport(again.failure), "a value that does not survive is refused: " + again.failure);
    }
    const std::string listing = stored(reading, false);
    require(listed(text) == listing, "a listing of the file is one of its records");
    require(listing.starts_with("{\"php\":[\n") && listing.ends_with("\n]}\n"), "a listing is a document");
}

void check(const std::string& text) {
    const Reading reading = read(text);
    if (isReport(reading.failure)) {
        checkRefusal(text, reading);
    } else if (!reading.failure.empty()) {
        checkType(reading);
    } else {
        checkAccepted(text, reading);
    }
}

} // namespace

} // namespace quelm::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quelm::fuzz;
    const std::string whole = textOf(data, size);
    const std::string text = whole.substr(0, whole.find('\0'));
    check(text);
    if (text.size() < whole.size()) {
        const Reading reading = read(whole);
        require(text.empty() ? offsetOf(reading.failure) == 0 : reading == read(text),
                "a NUL byte ends the text");
    }
    return 0;
}
