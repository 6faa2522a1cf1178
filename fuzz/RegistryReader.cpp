// Any text as the registry file: what a refusal tells is true of the text, what is accepted survives being
// written and read again.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
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

// A report of the reader, taken apart to be held against the text that it tells about.
struct RegistryReport {
    std::string message;
    std::size_t offset = 0;
    std::string character; // as printed between the apostrophes
};

constexpr std::string_view intro = "can not parse php_versions_info object : ";

// The bytes at which the reader can stop with a message: those named, or all but those named. The end of the
// text is written as a NUL byte.
struct Stop {
    std::string_view message;
    bool named;
    std::string_view bytes;
};

using namespace std::string_view_literals;
constexpr std::string_view spaces = " \t\n\v\f\r";
constexpr std::array<Stop, 15> stops{{
    {"JSON document has ended prematurely. Check that all strings are properly ended.", true, "\0"sv},
    {"Any value is expected, but was not found.", false, "\0\"{[tfn-0123456789"sv},
    {"Invalid or unsupported number format. Check that there are no floating point numbers.", false,
     "0123456789"},
    {"String is expected.", false, "\""},
    {"Invalid escape sequence found in string.", false, "\0\"\\/bfnrtu"sv},
    {"Invalid character found in string. Check that strings do not contain control characters.", true,
     "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19"
     "\x1a\x1b\x1c\x1d\x1e\x1f"},
    {"Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters "
     "and '\\u' escape sequences are not supported.",
     true, "u"},
    {"JSON object is expected.", false, "{"},
    {"JSON name separator (':') is expected inside an object.", false, ":"},
    {"JSON value separator (',') or end of object is expected.", false, ",}"},
    {"Some required fields are missing from the JSON object. Check that input JSON document conforms to "
     "schema.",
     true, "}"},
    {"JSON array is expected.", false, "["},
    {"JSON value separator (',') or end of array is expected.", false, ",]"},
    {"Boolean value is expected.", false, ""},
    {"'null' is expected.", true, "n"},
}};

std::string printed(char c) {
    if (c >= 0x20 && c <= 0x7e) {
        return {c};
    }
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    return text.data();
}

// True for the text of a failure, without the path before it, that holds a report.
bool isReport(std::string_view failure) {
    return failure.starts_with(intro);
}

// Ends the process when the report is not laid out as every report is.
RegistryReport parseReport(std::string_view failure) {
    require(isReport(failure), "this is a report: " + std::string(failure));
    const std::string_view text = failure.substr(intro.size());
    const std::size_t offset = text.rfind(" Error occured at offset ");
    const std::size_t character = text.rfind(", character '");
    require(offset != std::string_view::npos && character != std::string_view::npos && offset < character &&
                text.ends_with("'. "),
            "a report tells the offset and the character, and no error of the system: " + std::string(text));
    const std::size_t digits = offset + 25;
    const std::size_t shown = character + 13;
    return {std::string(text.substr(0, offset)),
            std::strtoull(std::string(text.substr(digits, character - digits)).c_str(), nullptr, 10),
            std::string(text.substr(shown, text.size() - shown - 3))};
}

// Whether the character is the one at the offset of `text`, which holds no NUL byte, and the message one that
// this byte can call for.
bool fits(const RegistryReport& report, std::string_view text) {
    const char byte = report.offset < text.size() ? text[report.offset] : '\0';
    if (report.character != printed(byte)) {
        return false;
    }
    const auto* stop = std::find_if(stops.begin(), stops.end(),
                                    [&](const Stop& known) { return known.message == report.message; });
    if (stop == stops.end()) {
        return false;
    }
    // Those that begin so can stop in the middle of a token, where a blank is as good as any other byte.
    if (spaces.find(byte) != std::string_view::npos && !stop->message.starts_with("Invalid ")) {
        return false;
    }
    return (stop->bytes.find(byte) != std::string_view::npos) == stop->named;
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
    const RegistryReport report = parseReport(reading.failure);
    require(reading.warnings.empty(), "no warning before the whole text is accepted");
    require(report.offset <= text.size(), "the reader stops within the text");
    require(fits(report, text), "the message fits the byte at which the reader stopped: " + reading.failure);
    if (report.offset == 0) {
        return;
    }
    const Reading shorter = read(text.substr(0, report.offset));
    require(isReport(shorter.failure) && parseReport(shorter.failure).offset == report.offset,
            "what stands before the stop had been accepted");
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
        require(text.empty() ? parseReport(reading.failure).message == "JSON object is expected."
                             : reading == read(text),
                "a NUL byte ends the text");
    }
    return 0;
}
