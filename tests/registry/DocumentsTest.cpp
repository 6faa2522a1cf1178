// What the registry reader makes of each of the documents in documents/.
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "registry/RegistryWriter.h"
#include "tests/registry/TestRegistry.h"
#include "tests/support/TempDir.h"

namespace quelm {

namespace {

struct Document {
    std::string name;
    std::vector<std::string> verdicts; // of values.txt two, of the others one
    std::string text;
    std::vector<std::string> records; // "FIELD=VALUE|...", escapes resolved
    std::string errors;               // what is printed on standard error
};

// Replaces the escapes <XX>, <text*count> and @(id), which stands for the smallest record of that id.
std::string resolved(const std::string& line) {
    std::string text;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const std::size_t end = line.find(line[at] == '@' ? ')' : '>', at);
        const std::string inside = line.substr(at + 1, end - at - 1);
        const std::size_t star = inside.rfind('*');
        if (line.compare(at, 2, "@(") == 0) {
            text += R"({"id":")" + inside.substr(1) +
                    R"(","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"})";
        } else if (line[at] == '<' && star != std::string::npos && end != std::string::npos) {
            for (int left = std::stoi(inside.substr(star + 1)); left > 0; --left) {
                text += inside.substr(0, star);
            }
        } else if (line[at] == '<' && end == at + 3) {
            text += static_cast<char>(std::stoi(inside, nullptr, 16));
        } else {
            text += line[at];
            continue;
        }
        at = end;
    }
    return text;
}

Document parse(const std::string& line, std::size_t verdicts) {
    Document document;
    std::size_t begin = 0;
    const auto next = [&] {
        const std::size_t bar = line.find(" | ", begin);
        if (bar == std::string::npos) {
            throw std::runtime_error("not a document: " + line);
        }
        const std::string part = line.substr(begin, bar - begin);
        begin = bar + 3;
        return part;
    };
    document.name = next();
    for (; verdicts > 0; --verdicts) {
        document.verdicts.push_back(resolved(next()));
    }
    document.text = resolved(line.substr(begin));
    return document;
}

std::vector<Document> documentsOf(const std::string& file) {
    std::ifstream lines(std::string(TAMRIX_DOCUMENTS) + "/" + file, std::ios::binary);
    std::vector<Document> documents;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.starts_with("> ")) {
            documents.back().records.push_back(resolved(line.substr(2)));
        } else if (line.starts_with("! ")) {
            documents.back().errors += line.substr(2) + "\n";
        } else if (line.starts_with("|")) {
            documents.back().text += "\n" + resolved(line.substr(std::min<std::size_t>(2, line.size())));
        } else {
            documents.push_back(parse(line, file == "values.txt" ? 2 : 1));
        }
    }
    return documents;
}

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
    // What a snapshot lists is what the registry loaded from it lists, unless a name is cut at its NUL byte.
    if (reading.failure.empty() && text.find("%00") == std::string::npos) {
        std::ostringstream fromFile;
        std::ostringstream fromRegistry;
        writeRegistryJson(RegistrySnapshot(path).handlers(), fromFile, false);
        writeRegistryJson(reading.registry, fromRegistry, false);
        EXPECT_EQ(fromFile.str(), fromRegistry.str());
    }
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
    std::istringstream words(verdict);
    int code = 0;
    std::string at;
    std::string offset;
    std::string character;
    std::getline(words >> code >> at >> offset >> std::ws, character);
    return "can not parse php_versions_info object : " + messages.at(code) + " Error occured at offset " +
           offset + ", character " + character + ". ";
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
    EXPECT_EQ(values.size(), 203u);
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

} // namespace quelm
