// What the registry reader makes of each of the documents in documents/.
#include <cerrno>
#include <map>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "registry/RegistryWriter.h"
#include "tests/registry/Documents.h"
#include "tests/registry/TestRegistry.h"
#include "tests/support/TempDir.h"

namespace quelm {

namespace {

using test::Document;
using test::documentsOf;

struct Reading {
    std::string failure; // behind "Error reading PATH: "
    HandlerRegistry registry;
    std::string errors;
};

// With an error number that an earlier step left: no report may tell of it.
Reading read(const std::string& text) {
    const test::TempDir directory;
    const std::string path = directory.write("registry.json", text);
    Reading reading{"", test::registryOf({test::handlerWithId("stale")}), ""};
    const test::CaughtErrors errors;
    errno = ENOENT;
    try {
        load(reading.registry, path);
    } catch (const QuelmUtilException& failure) {
        const std::string prefix = "Error reading " + path + ": ";
        EXPECT_TRUE(std::string(failure.what()).starts_with(prefix)) << failure.what();
        reading.failure = std::string(failure.what()).substr(prefix.size());
    }
    reading.errors = errors.text();
    return reading;
}

// The messages by their code, as administrators and the panel know them.
const std::map<int, std::string> messages{
    {2, "JSON document has ended prematurely. Check that all strings are properly ended."},
    {3, "Any value is expected, but was not found."},
    {6, "Invalid or unsupported number format. Check that there are no floating point numbers."},
    {7, "String is expected."},
    {8, "Invalid escape sequence found in string."},
    {9, "Invalid character found in string. Check that strings do not contain control characters."},
    {10, "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded "
         "characters and "
         "'\\u' escape sequences are not supported."},
    {11, "JSON object is expected."},
    {12, "JSON name separator (':') is expected inside an object."},
    {13, "JSON value separator (',') or end of object is expected."},
    {14, "Some required fields are missing from the JSON object. Check that input JSON document conforms to "
         "schema."},
    {15, "JSON array is expected."},
    {16, "JSON value separator (',') or end of array is expected."},
    {17, "Boolean value is expected."},
    {18, "'null' is expected."},
};

std::string failureFor(const std::string& verdict) {
    if (verdict == "accepted") {
        return "";
    }
    if (verdict.starts_with("type ")) {
        return "Unknown php handler type : " + verdict.substr(5);
    }
    std::smatch parts;
    if (!std::regex_match(verdict, parts, std::regex(R"((\d+) at (\d+) ('.+'))"))) {
        return "no verdict: " + verdict;
    }
    return "can not parse php_versions_info object : " + messages.at(std::stoi(parts[1])) +
           " Error occured at offset " + parts[2].str() + ", character " + parts[3].str() + ". ";
}

std::string described(const PhpHandler& handler) {
    std::string text = "id=" + handler.id;
    const auto add = [&](const char* name, const std::string& value, const std::string& usual) {
        if (value != usual) {
            text += std::string("|") + name + "=" + value;
        }
    };
    add("displayname", handler.displayname, "d");
    add("path", handler.path, "p");
    add("clipath", handler.clipath, "");
    add("version", handler.version, "v");
    add("phpini", handler.phpini, "i");
    add("type", std::string(formatHandlerType(handler)), "cgi");
    add("system", handler.system ? "true" : "", "");
    add("service", handler.service, "");
    add("poold", handler.poold, "");
    return text;
}

void expectReadAsItsLineTells(const Document& document) {
    SCOPED_TRACE(document.name);
    const Reading reading = read(document.text);
    EXPECT_EQ(reading.failure, failureFor(document.verdicts.at(0)));
    EXPECT_EQ(reading.errors, document.errors);
    std::vector<std::string> records;
    for (const PhpHandler& handler : reading.registry) {
        records.push_back(described(handler));
    }
    EXPECT_EQ(records, document.records);
}

} // namespace

TEST(Documents, AreReadAsTheirLinesTell) {
    for (const char* file : {"handlers.txt", "syntax.txt"}) {
        const std::vector<Document> documents = documentsOf(file);
        EXPECT_GT(documents.size(), 40u) << file;
        for (const Document& document : documents) {
            expectReadAsItsLineTells(document);
        }
    }
}

TEST(Documents, ValuesOfTheWholeLanguageAreDroppedOrRefused) {
    const std::vector<Document> values = documentsOf("values.txt");
    EXPECT_GT(values.size(), 370u);
    for (const Document& value : values) {
        SCOPED_TRACE(value.name);
        for (const auto& [text, verdict] :
             {std::pair{R"({"dropped":)" + value.text + R"(,"php":[]})", value.verdicts.at(0)},
              {value.text, value.verdicts.at(1)}}) {
            const Reading reading = read(text);
            EXPECT_EQ(reading.failure, failureFor(verdict));
            EXPECT_TRUE(reading.registry.empty());
            EXPECT_EQ(reading.errors, "");
        }
    }
}

// What a snapshot lists is what the registry loaded from it lists, and what was stored is read again.
TEST(Documents, AcceptedOnesAreListedAndStoredAlike) {
    const test::TempDir directory;
    for (const Document& document : documentsOf("handlers.txt")) {
        if (document.verdicts[0] != "accepted" || document.name == "display_name_encoded_nul") {
            continue;
        }
        SCOPED_TRACE(document.name);
        const std::string path = directory.write("registry.json", document.text);
        const test::CaughtErrors errors;
        HandlerRegistry registry;
        load(registry, path);
        std::ostringstream fromFile;
        std::ostringstream fromRegistry;
        writeRegistryJson(RegistrySnapshot(path).handlers(), fromFile, false);
        writeRegistryJson(registry, fromRegistry, false);
        EXPECT_EQ(fromFile.str(), fromRegistry.str());
    }
}

} // namespace quelm
