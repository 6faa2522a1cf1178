#include "registry/RegistrySnapshot.h"

#include <filesystem>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "registry/HandlerTable.h"
#include "registry/RegistryFile.h"
#include "registry/RegistryWriter.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

namespace fs = std::filesystem;

// What was told and written on the way, and the failure that ended it.
std::string outcome(const std::function<void(std::ostream&)>& list) {
    std::ostringstream written;
    const test::CaughtErrors errors;
    try {
        list(written);
    } catch (const QuelmUtilException& failure) {
        return errors.text() + failure.what();
    }
    return errors.text() + written.str();
}

HandlerRegistry loaded(const std::string& path) {
    HandlerRegistry registry;
    load(registry, path);
    return registry;
}

std::string withHandlers(const std::string& handlers) {
    return "{\"php\":[" + handlers + "]}";
}

std::string handler(const std::string& id, const std::string& displayname, const std::string& type) {
    return R"({"id":")" + id + R"(","path":"/p","version":"8.1","phpini":"/i","displayname":")" +
           displayname + R"(","type":")" + type + R"("})";
}

class Snapshot : public testing::Test {
protected:
    RegistrySnapshot of(const std::string& text) {
        test::writeFile(path_, text);
        return RegistrySnapshot(path_);
    }
    std::string json(const std::string& text) {
        const RegistrySnapshot snapshot = of(text);
        std::ostringstream stream;
        writeRegistryJson(snapshot, stream);
        return stream.str();
    }

    const test::ScratchDirectory directory_;
    const std::string path_ = directory_ / "registry.json";
};

} // namespace

TEST(RegistrySnapshots, ListEveryDocumentAsARegistryLoadedFromItDoes) {
    std::size_t documents = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(TAMRIX_REGISTRY_CASES)) {
        if (entry.path().extension() != ".json") {
            continue;
        }
        const std::string path = entry.path().string();
        SCOPED_TRACE(path);
        ++documents;
        EXPECT_EQ(outcome([&](std::ostream& stream) { writeRegistryJson(RegistrySnapshot(path), stream); }),
                  outcome([&](std::ostream& stream) { writeRegistryJson(loaded(path), stream, false); }));
        EXPECT_EQ(outcome([&](std::ostream& stream) { writeHandlerTable(RegistrySnapshot(path), stream); }),
                  outcome([&](std::ostream& stream) { writeHandlerTable(loaded(path), stream); }));
    }
    EXPECT_GE(documents, 166u);
}

TEST_F(Snapshot, ALongListingIsThatOfTheRegistryLoadedFromIt) {
    std::string handlers;
    for (std::size_t number = 0; number < 3000; ++number) {
        handlers += (number == 0 ? "" : ",") + handler(std::to_string(number),
                                                       "PHP%20%24version%20" + std::string(number % 50, 'x'),
                                                       number % 3 == 0 ? "fpm" : "cgi");
    }
    const std::string listed = json(withHandlers(handlers));
    EXPECT_GT(listed.size(), 4 * 65536u);
    std::ostringstream stream;
    writeRegistryJson(loaded(path_), stream, false);
    EXPECT_TRUE(listed == stream.str());
}

TEST_F(Snapshot, OfAMissingOrEmptyFileHasNoHandlers) {
    EXPECT_EQ(RegistrySnapshot(directory_ / "missing").handlers().size(), 0u);
    EXPECT_EQ(of("").handlers().size(), 0u);
    EXPECT_EQ(json(""), "{\"php\":[\n]}\n");
}

TEST_F(Snapshot, KeepsTheFirstOfEqualIdsAndNeverLooksAtTheTypeOfTheOthers) {
    const test::CaughtErrors errors;
    const RegistrySnapshot snapshot =
        of(withHandlers(handler("a", "first", "cgi") + "," + handler("a", "second", "?") + "," +
                        handler("b", "third", "fpm")));
    ASSERT_EQ(snapshot.handlers().size(), 2u);
    EXPECT_EQ(viewOf(snapshot.handlers()[0]).displayname, "first");
    EXPECT_EQ(viewOf(snapshot.handlers()[1]).displayname, "third");
    EXPECT_EQ(viewOf(snapshot.handlers()[1]).type, PhpHandlerType::fpm);
    EXPECT_EQ(errors.text(), "[Warning] conflicting handler with id `a' found. Ignoring\n");
}

TEST_F(Snapshot, OutlivesItsFileAndMoves) {
    RegistrySnapshot snapshot = of(withHandlers(handler("a", "PHP%20%24version", "module")));
    test::writeFile(path_, "gone");
    const RegistrySnapshot moved = std::move(snapshot);
    const HandlerView view = viewOf(moved.handlers()[0]);
    EXPECT_EQ(view.id, "a");
    EXPECT_EQ(view.displayname, "PHP $version");
    EXPECT_EQ(view.path, "/p");
    EXPECT_EQ(view.version, "8.1");
    EXPECT_EQ(view.phpini, "/i");
    EXPECT_EQ(view.clipath, "");
}

TEST_F(Snapshot, ADecodedNameMayHoldANulByte) {
    const RegistrySnapshot snapshot = of(withHandlers(handler("a", "x%00%24version", "cgi")));
    EXPECT_EQ(viewOf(snapshot.handlers()[0]).displayname, std::string_view("x\0$version", 10));
    std::ostringstream table;
    writeHandlerTable(snapshot, table);
    EXPECT_NE(table.str().find(std::string("x\0"
                                           "8.1",
                                           5)),
              std::string::npos);
}

TEST_F(Snapshot, ARegistryLoadedFromItOwnsItsTexts) {
    test::writeFile(path_, withHandlers(handler("a", "PHP%20a%00b", "fpm")));
    const HandlerRegistry registry = loaded(path_);
    EXPECT_EQ(registry[0].displayname, std::string("PHP a\0b", 7));
    EXPECT_EQ(registry[0].path, "/p");
}

} // namespace quelm
