// The reader of package files; what --reread makes of them is in tests/system/test_package_files.py.
#include "commands/PackageHandlers.h"

#include <filesystem>

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
using quelm::test::TempDir;

class PackageHandlers : public testing::Test {
protected:
    // Reads the directory and returns what was printed.
    std::string read(const std::string& directory) {
        const CapturedStreams captured;
        readPackageHandlers(registry_, directory);
        return captured.error();
    }
    // The outcome of a single file of this text.
    std::string readFile(const std::string& text) {
        registry_ = HandlerRegistry();
        directory_.write("x.conf", text);
        return read(directory_.path());
    }
    std::string readingError(const std::string& text) const {
        return "Error reading handler from " + directory_.path("x.conf") + ": " + text + "\n";
    }

    TempDir directory_;
    HandlerRegistry registry_;
};

const std::string cgiFile =
    "displayname=PHP $version\npath=/p/php-cgi\nclipath=\"/p/php\"\nphpini=/p/php.ini\ntype=cgi\n";

TEST_F(PackageHandlers, AFileBecomesASystemHandlerWithAnEmptyVersion) {
    EXPECT_EQ(readFile(cgiFile + "id=php81\nunknown=ignored\n"), "");
    ASSERT_EQ(registry_.size(), 1u);
    EXPECT_EQ(registry_[0], (PhpHandler{"php81", "PHP $version", "/p/php-cgi", "\"/p/php\"", "", "/p/php.ini",
                                        "", "", PhpHandlerType::cgi, true}));
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

TEST_F(PackageHandlers, AMissingDirectoryOrAFileInItsPlaceAddsNothingAndALoopThrows) {
    EXPECT_EQ(read(directory_.path("none")), "");
    EXPECT_EQ(read(directory_.write("file", cgiFile)), "");
    EXPECT_TRUE(registry_.empty());
    fs::create_symlink("loop", directory_.path("loop"));
    EXPECT_THROW(readPackageHandlers(registry_, directory_.path("loop")), fs::filesystem_error);
}

} // namespace
