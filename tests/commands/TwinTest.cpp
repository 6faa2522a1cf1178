// The dedicated twin of an fpm handler.
#include <gtest/gtest.h>

#include "commands/PackageHandlers.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::HandlerRegistry;
using quelm::PhpHandler;
using quelm::PhpHandlerType;
using quelm::test::TempDir;

class Twin : public testing::Test {
protected:
    // Reads one fpm file whose interpreter reports this version; returns what was printed.
    std::string readWith(const std::string& interpreterBody) {
        registry_ = HandlerRegistry();
        directory_.script("php-fpm", interpreterBody);
        directory_.write("x.conf", "displayname=n\npath=" + php_ +
                                       "\nclipath=/c\nphpini=/i\ntype=fpm\nservice=s\npoold=/d\nid=f\n");
        testing::internal::CaptureStderr();
        readPackageHandlers(registry_, directory_.path());
        return testing::internal::GetCapturedStderr();
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
    const PhpHandler& first = std::as_const(registry_)[0];
    const PhpHandler& twin = std::as_const(registry_)[1];
    EXPECT_EQ(first.id, "f");
    EXPECT_EQ(first.poold, "/d");
    EXPECT_EQ(twin.id, "f-dedicated");
    EXPECT_EQ(twin.poold, "");
    EXPECT_EQ(twin.displayname, "n");
    EXPECT_EQ(twin.path, php_);
    EXPECT_EQ(twin.clipath, "/c");
    EXPECT_EQ(twin.phpini, "/i");
    EXPECT_EQ(twin.service, "s");
    EXPECT_EQ(twin.version, "");
    EXPECT_EQ(twin.type, PhpHandlerType::fpm);
    EXPECT_TRUE(twin.system);
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

TEST_F(Twin, AFailingProbeLeavesTheFirstHandler) {
    EXPECT_EQ(readWith("exit 1"), "Error adding handler from " + directory_.path("x.conf") +
                                      ": can not get version from " + php_ + "\n");
    ASSERT_EQ(registry_.size(), 1u);
    EXPECT_EQ(std::as_const(registry_)[0].id, "f");
}

TEST_F(Twin, ATakenIdLeavesTheFirstHandler) {
    readWith("echo PHP 8.1");
    HandlerRegistry taken;
    PhpHandler other;
    other.id = "f-dedicated";
    add(taken, other);
    testing::internal::CaptureStderr();
    readPackageHandlers(taken, directory_.path());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error adding handler from " + directory_.path("x.conf") +
                  ": Handler with id = `f-dedicated' already exists\n");
    EXPECT_EQ(taken.size(), 2u);
}

TEST_F(Twin, OtherTypesAreNotProbed) {
    const std::string php = directory_.script("php-cgi", "touch " + directory_.path("probed"));
    directory_.write("x.conf", "displayname=n\npath=" + php + "\nclipath=\nphpini=\ntype=fastcgi\n");
    readPackageHandlers(registry_, directory_.path());
    EXPECT_EQ(registry_.size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(directory_.path("probed")));
}

} // namespace
