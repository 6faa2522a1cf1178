#include "commands/PackageHandlers.h"

#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/registry/TestRegistry.h"
#include "tests/support/Captured.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using quelm::HandlerRegistry;
using quelm::PhpHandler;
using quelm::PhpHandlerType;
using quelm::test::CapturedStreams;
using quelm::test::idsOf;
using quelm::test::TempDir;

class PackageHandlers : public testing::Test {
protected:
    // Reads the directory and returns what was printed.
    std::string read() { return readFrom(directory_.path()); }
    std::string readFrom(const std::string& directory) {
        const CapturedStreams captured;
        readPackageHandlers(registry_, directory);
        return captured.error();
    }
    // The outcome of a single file of this text.
    std::string readFile(const std::string& text) {
        registry_ = HandlerRegistry();
        directory_.write("x.conf", text);
        return read();
    }
    std::string readingError(const std::string& text) const {
        return "Error reading handler from " + directory_.path("x.conf") + ": " + text + "\n";
    }
    std::string addingError(const std::string& text) const {
        return "Error adding handler from " + directory_.path("x.conf") + ": " + text + "\n";
    }

    TempDir directory_;
    HandlerRegistry registry_;
};

const std::string cgiFile =
    "displayname=PHP $version\npath=/p/php-cgi\nclipath=/p/php\nphpini=/p/php.ini\ntype=cgi\n";

TEST_F(PackageHandlers, AFileBecomesASystemHandlerWithAnEmptyVersion) {
    EXPECT_EQ(readFile(cgiFile + "id=php81\nunknown=ignored\n"), "");
    ASSERT_EQ(registry_.size(), 1u);
    EXPECT_EQ(registry_[0], (PhpHandler{"php81", "PHP $version", "/p/php-cgi", "/p/php", "", "/p/php.ini", "",
                                        "", PhpHandlerType::cgi, true}));
}

TEST_F(PackageHandlers, AnAbsentIdIsComputedFromNamePathIniAndType) {
    EXPECT_EQ(readFile(cgiFile), "");
    // sha1 of "PHP $version /p/php-cgi /p/php.ini cgi"
    EXPECT_EQ(std::as_const(registry_)[0].id, "c0689475075c281ad311406e0bbcb72551d74a92");
}

TEST_F(PackageHandlers, AnEmptyIdIsUsedAndThenRefused) {
    EXPECT_EQ(readFile(cgiFile + "id=\n"), addingError("Undefined php handler id"));
    EXPECT_TRUE(registry_.empty());
}

TEST_F(PackageHandlers, EveryOtherTypeIsAcceptedWithoutServiceAndPoolDirectory) {
    for (const std::string type : {"module", "cgi", "fastcgi"}) {
        EXPECT_EQ(
            readFile("displayname=n\npath=p\nclipath=\nphpini=\nservice=s\npoold=/d\ntype=" + type + "\n"),
            "");
        EXPECT_EQ(formatHandlerType(std::as_const(registry_)[0]), type);
        EXPECT_EQ(std::as_const(registry_)[0].service + std::as_const(registry_)[0].poold, "");
    }
}

TEST_F(PackageHandlers, MissingKeysAreReportedInTheOrderOfReading) {
    const std::vector<std::string> lines{
        "displayname=n", "path=p", "clipath=", "phpini=", "type=fpm", "service=s"};
    const std::vector<std::string> missing{"displayname", "path",    "clipath", "phpini",
                                           "type",        "service", "poold"};
    std::string text;
    for (std::size_t count = 0; count < missing.size(); ++count) {
        EXPECT_EQ(readFile(text), readingError("No such node (" + missing[count] + ")"));
        EXPECT_TRUE(registry_.empty());
        text += count < lines.size() ? lines[count] + "\n" : "";
    }
    EXPECT_EQ(readFile("[php]\n" + cgiFile), readingError("No such node (displayname)"));
    EXPECT_EQ(readFile("\xef\xbb\xbf" + cgiFile), readingError("No such node (displayname)"));
}

TEST_F(PackageHandlers, AnUnknownTypeIsAnAddingError) {
    EXPECT_EQ(readFile("displayname=n\npath=p\nclipath=\nphpini=\ntype=CGI\n"),
              addingError("Unknown php handler type : CGI"));
}

TEST_F(PackageHandlers, TheParsersOwnErrorsNameFileAndLine) {
    const std::string path = directory_.path("x.conf");
    EXPECT_EQ(readFile("no equals sign\n"), readingError(path + "(1): '=' character not found in line"));
    EXPECT_EQ(readFile("a=1\na=2\n"), readingError(path + "(2): duplicate key name"));
    EXPECT_EQ(readFile("[s]\nk=1\n[s]\n"), readingError(path + "(3): duplicate section name"));
    EXPECT_EQ(readFile("=v\n"), readingError(path + "(1): key expected"));
    EXPECT_EQ(readFile("[s\n"), readingError(path + "(1): unmatched '['"));
}

TEST_F(PackageHandlers, BlanksCarriageReturnsAndCommentLinesAreTakenAway) {
    EXPECT_EQ(
        readFile("; c\n# c\n displayname =  a b ; kept \r\npath=\"p\"\nclipath=\nphpini=\ntype=cgi\r\n"), "");
    EXPECT_EQ(std::as_const(registry_)[0].displayname, "a b ; kept");
    EXPECT_EQ(std::as_const(registry_)[0].path, "\"p\"");
}

TEST_F(PackageHandlers, AFileThatCannotBeOpenedIsNamedTwice) {
    const std::string path = directory_.write("x.conf", cgiFile);
    fs::permissions(path, fs::perms::none);
    fs::permissions(directory_.path(), fs::perms(0755));
    // Root opens every file, so somebody else looks.
    const auto outcome = quelm::test::inChild([this] {
        constexpr uid_t nobody = 65534;
        if (::geteuid() == 0 && ::setuid(nobody) != 0) {
            ::_exit(1);
        }
        readPackageHandlers(registry_, directory_.path());
    });
    EXPECT_EQ(outcome.error, readingError(path + ": cannot open file"));
}

TEST_F(PackageHandlers, OnlyRegularFilesThatEndInConfAreRead) {
    const TempDir elsewhere;
    for (const char* name :
         {"php81.conf.bak", "php81.conf~", "php81.conf.dpkg-old", "README", "x.CONF", "xconf"}) {
        directory_.write(name, "not even INI");
    }
    fs::create_directory(directory_.path("x.conf"));
    directory_.write("x.conf/below.conf", "not even INI");
    fs::create_symlink("nowhere", directory_.path("dangling.conf"));
    fs::create_symlink("loop.conf", directory_.path("loop.conf"));
    EXPECT_EQ(read(), "");
    EXPECT_TRUE(registry_.empty());
    directory_.write(".conf", cgiFile + "id=hidden\n");
    fs::create_symlink(elsewhere.write("target", cgiFile + "id=linked\n"), directory_.path("y.conf"));
    EXPECT_EQ(read(), "");
    EXPECT_EQ(registry_.size(), 2u);
    EXPECT_NE(find(registry_, "hidden"), nullptr);
    EXPECT_NE(find(registry_, "linked"), nullptr);
}

TEST_F(PackageHandlers, ABadFileOrTheSecondWithAnIdStopsNoOther) {
    for (const char* name : {"a.conf", "c.conf"}) {
        directory_.write(name, cgiFile + "id=same\n");
    }
    directory_.write("d.conf", cgiFile + "id=d\n");
    const std::string error = read();
    EXPECT_EQ(registry_.size(), 2u);
    EXPECT_TRUE(error.starts_with("Error adding handler from " + directory_.path())) << error;
    EXPECT_TRUE(error.ends_with(".conf: Handler with id = `same' already exists\n")) << error;
    registry_ = HandlerRegistry();
    directory_.write("b.conf", "bad\n");
    directory_.write("c.conf", "bad\n");
    read();
    EXPECT_EQ(registry_.size(), 2u);
}

TEST_F(PackageHandlers, AMissingDirectoryOrAFileInItsPlaceAddsNothingAndALoopThrows) {
    EXPECT_EQ(readFrom(directory_.path("none")), "");
    EXPECT_EQ(readFrom(directory_.write("file", cgiFile)), "");
    EXPECT_TRUE(registry_.empty());
    fs::create_symlink("loop", directory_.path("loop"));
    EXPECT_THROW(readPackageHandlers(registry_, directory_.path("loop")), fs::filesystem_error);
}

class Twin : public testing::Test {
protected:
    // Reads one fpm file whose interpreter reports this version; returns what was printed.
    std::string readWith(const std::string& interpreterBody) {
        registry_ = HandlerRegistry();
        directory_.script("php-fpm", interpreterBody);
        directory_.write("x.conf", "displayname=n\npath=" + php_ +
                                       "\nclipath=/c\nphpini=/i\ntype=fpm\nservice=s\npoold=/d\nid=f\n");
        const CapturedStreams captured;
        readPackageHandlers(registry_, directory_.path());
        return captured.error();
    }
    bool hasTwin(const std::string& version) {
        EXPECT_EQ(readWith("echo 'PHP " + version + " (fpm-fcgi)'"), "");
        return registry_.size() == 2;
    }

    TempDir directory_;
    std::string php_ = directory_.path("php-fpm");
    HandlerRegistry registry_;
};

TEST_F(Twin, IsTheSameHandlerWithoutAPoolDirectory) {
    ASSERT_TRUE(hasTwin("8.1.2"));
    PhpHandler expected{"f", "n", php_, "/c", "", "/i", "s", "/d", PhpHandlerType::fpm, true};
    EXPECT_EQ(registry_[0], expected);
    expected.id = "f-dedicated";
    expected.poold = "";
    EXPECT_EQ(registry_[1], expected);
}

TEST_F(Twin, ExistsFromSevenThreeOnInTheOrderOfStrverscmp) {
    for (const char* version : {"7.3", "7.3.0", "7.10", "7.30", "7.29", "8", "10.0"}) {
        EXPECT_TRUE(hasTwin(version)) << version;
    }
    for (const char* version : {"7", "7.2.34", "7.03", "5.6.40"}) {
        EXPECT_FALSE(hasTwin(version)) << version;
        EXPECT_EQ(registry_.size(), 1u);
    }
}

TEST_F(Twin, AFailingProbeOrATakenIdLeavesTheFirstHandler) {
    const std::string failed = "Error adding handler from " + directory_.path("x.conf") + ": ";
    EXPECT_EQ(readWith("exit 1"), failed + "can not get version from " + php_ + "\n");
    EXPECT_EQ(idsOf(registry_), "f");
    readWith("echo PHP 8.1");
    registry_ = quelm::test::registryOf({quelm::test::handlerWithId("f-dedicated")});
    const CapturedStreams captured;
    readPackageHandlers(registry_, directory_.path());
    EXPECT_EQ(captured.error(), failed + "Handler with id = `f-dedicated' already exists\n");
    EXPECT_EQ(idsOf(registry_), "f-dedicatedf");
}

TEST_F(Twin, OtherTypesAreNotProbed) {
    const std::string php = directory_.script("php-cgi", "touch " + directory_.path("probed"));
    directory_.write("x.conf", "displayname=n\npath=" + php + "\nclipath=\nphpini=\ntype=fastcgi\n");
    readPackageHandlers(registry_, directory_.path());
    EXPECT_EQ(registry_.size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(directory_.path("probed")));
}

} // namespace
