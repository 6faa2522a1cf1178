#include "host/ServiceTools.h"

#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "tests/support/InChild.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::QuelmUtilException;
using quelm::test::inChild;
using quelm::test::readFile;
using quelm::test::TempDir;

class ServiceTools : public testing::Test {
protected:
    ServiceTools() { std::filesystem::create_directories(root_.path("admin/sbin")); }

    void install(const std::string& name, const std::string& more = {}) {
        root_.script("admin/sbin/" + name,
                     "printf '%s\\n' \"$0\" \"$@\" >" + root_.path("called") + "\n" + more);
    }
    std::string tool(const std::string& name) const { return root_.path("admin/sbin/" + name); }
    std::string called() const { return readFile(root_.path("called")); }

    // What checkServiceExists throws, and anything that reaches the streams.
    std::string check(const std::string& service) const {
        const auto outcome = inChild([&] {
            try {
                quelm::checkServiceExists(service, root_.path());
            } catch (const QuelmUtilException& failure) {
                std::fputs(failure.what(), stdout);
            }
        });
        return outcome.output + outcome.error;
    }

    TempDir root_;
};

TEST_F(ServiceTools, AnExistingServiceRaisesNothing) {
    install("quelmrc", "echo shown; echo shown >&2");
    EXPECT_EQ(check("php8.2-fpm"), "");
    EXPECT_EQ(called(), tool("quelmrc") + "\nphp8.2-fpm\nexists\n");
}

TEST_F(ServiceTools, AMissingServiceIsNamedAndTheToolsOutputIsNotShown) {
    install("quelmrc", "echo shown; echo shown >&2; exit 4");
    EXPECT_EQ(check("nothing"), "nothing: service not found.");
}

TEST_F(ServiceTools, AMissingServiceWithTheSuffixGetsTheHint) {
    install("quelmrc", "exit 1");
    EXPECT_EQ(check("php-fpm.service"),
              "php-fpm.service: service not found. Please retry without '.service' suffix.");
    EXPECT_EQ(check(".service"), ".service: service not found. Please retry without '.service' suffix.");
    EXPECT_EQ(check("php.Service"), "php.Service: service not found.");
    EXPECT_EQ(check("service"), "service: service not found.");
    EXPECT_EQ(check(""), ": service not found.");
}

TEST_F(ServiceTools, AnExistingServiceWithTheSuffixGetsNoHint) {
    install("quelmrc");
    EXPECT_EQ(check("php-fpm.service"), "");
}

TEST_F(ServiceTools, AToolThatIsMissingOrKilledReadsAsNotFound) {
    EXPECT_EQ(check("x"), "x: service not found.");
    install("quelmrc", "kill -KILL $$");
    EXPECT_EQ(check("x"), "x: service not found.");
}

TEST_F(ServiceTools, AnActionThatFailsIsReportedOnBothStreams) {
    install("quelmrc", "echo told; echo why >&2; exit 3");
    const auto outcome = inChild([&] { ::_exit(quelm::runServiceAction("web", "restart", root_.path())); });
    EXPECT_EQ(called(), tool("quelmrc") + "\nweb\nrestart\n");
    EXPECT_EQ(outcome.exitStatus(), 3);
    EXPECT_EQ(outcome.error, "told\n" + tool("quelmrc") + " execution failed:\nwhy\n");
    EXPECT_EQ(outcome.output, tool("quelmrc") + " execution failed:\nwhy\n");
}

TEST_F(ServiceTools, AnActionThatSucceedsIsSilent) {
    install("quelmrc", "echo told; echo why >&2");
    const auto outcome = inChild([&] { ::_exit(quelm::runServiceAction("web", "start", root_.path())); });
    EXPECT_EQ(outcome.exitStatus(), 0);
    EXPECT_EQ(outcome.output + outcome.error, "");
}

TEST_F(ServiceTools, EnablingAndDisablingAreSilentAlsoWhenTheyFail) {
    install("svc_enlist", "echo told; echo why >&2; exit 6");
    const auto enabled = inChild([&] { ::_exit(quelm::enableService("web", root_.path())); });
    EXPECT_EQ(called(), tool("svc_enlist") + "\n--enable\nweb\n");
    EXPECT_EQ(enabled.exitStatus(), 6);
    EXPECT_EQ(enabled.output + enabled.error, "");
    const auto disabled = inChild([&] { ::_exit(quelm::disableService("web", root_.path())); });
    EXPECT_EQ(called(), tool("svc_enlist") + "\n--disable\nweb\n");
    EXPECT_EQ(disabled.output + disabled.error, "");
}

TEST_F(ServiceTools, TheStatusLineIsRunningForZeroAndStoppedForAnyOther) {
    const auto outcome = inChild([] {
        quelm::printServiceStatus(0);
        quelm::printServiceStatus(3);
        quelm::printServiceStatus(-1);
    });
    EXPECT_EQ(outcome.output, "is running\nis stopped\nis stopped\n");
}

} // namespace
