#include "registry/RegistryFile.h"

#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/Log.h"
#include "cli/QuelmUtilException.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

using test::fpmHandler;
using test::handlerWithId;
using test::registryOf;

// What a save writes to the log and, were it talkative, to the terminal.
struct Said {
    std::string output;
    std::string errors;
};

Said saidWhileSaving(const std::string& path, const char* logTarget) {
    log_init(logTarget, LOG_INFO, LOG_USER, 0, nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    save(registryOf({fpmHandler()}), path);
    std::cout.flush();
    return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

void expectLogged(const std::string& path, const std::string& message) {
    const Said silent = saidWhileSaving(path, "none");
    EXPECT_EQ(silent.output + silent.errors, "");
    const Said logged = saidWhileSaving(path, "stderr");
    EXPECT_EQ(logged.output, "");
    EXPECT_EQ(logged.errors, message + "\n");
}

HandlerRegistry saveAndLoad(const HandlerRegistry& registry) {
    const test::ScratchDirectory directory;
    save(registry, directory / "f");
    HandlerRegistry again;
    load(again, directory / "f");
    return again;
}

} // namespace

TEST(RegistrySave, WritesTheStorageForm) {
    const test::ScratchDirectory directory;
    save(registryOf({fpmHandler(), handlerWithId("b")}), directory / "f");
    EXPECT_EQ(test::readFile(directory / "f"),
              "{\"php\":[\n{\n\t\"id\":\"php81\",\n\t\"path\":\"/usr/bin/php-cgi8.1\",\n"
              "\t\"clipath\":\"/usr/bin/php8.1\",\n\t\"phpini\":\"/etc/php/8.1/fpm/php.ini\",\n"
              "\t\"version\":\"8.1.2\",\n\t\"displayname\":\"PHP%20%24version%20%28%24version%29\",\n"
              "\t\"type\":\"fpm\",\n\t\"system\":true,\n\t\"service\":\"php8.1-fpm\",\n"
              "\t\"poold\":\"/etc/php/8.1/fpm/pool.d\"\n},\n{\n\t\"id\":\"b\",\n\t\"path\":\"p\",\n"
              "\t\"clipath\":\"c\",\n\t\"phpini\":\"i\",\n\t\"version\":\"v\",\n\t\"displayname\":\"d\",\n"
              "\t\"type\":\"cgi\",\n\t\"system\":false\n}\n]}\n");
}

TEST(RegistrySave, OverwritesInPlace) {
    const test::ScratchDirectory directory;
    const std::string path = directory / "f";
    test::writeFile(path, std::string(10000, 'x'));
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    ASSERT_EQ(::link(path.c_str(), (directory / "other").c_str()), 0);
    save(HandlerRegistry(), path);
    EXPECT_EQ(test::readFile(directory / "other"), "{\"php\":[\n]}\n");
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST(RegistrySave, ANewFileGetsTheDefaultMode) {
    for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{027, 0640}, {0, 0666}}) {
        const test::ScratchDirectory directory;
        const mode_t before = ::umask(mask);
        save(HandlerRegistry(), directory / "f");
        ::umask(before);
        struct stat status {};
        ASSERT_EQ(::stat((directory / "f").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, mode);
    }
}

TEST(RegistrySave, ASuccessIsNotLogged) {
    const test::ScratchDirectory directory;
    const Said said = saidWhileSaving(directory / "f", "stderr");
    EXPECT_EQ(said.output + said.errors, "");
}

TEST(RegistrySave, FailureToOpenIsLoggedAndSilent) {
    const test::ScratchDirectory directory;
    const std::string path = directory.path().string();
    expectLogged(path, "Unable to open " + path + ": Is a directory");
    expectLogged(path + "/none/f", "Unable to open " + path + "/none/f: No such file or directory");
}

TEST(RegistrySave, FifoWithoutReaderIsLoggedAndDoesNotHang) {
    const test::ScratchDirectory directory;
    const std::string path = directory / "fifo";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    expectLogged(path, "Unable to open " + path + ": No such device or address");
}

TEST(RegistrySave, FailureToWriteIsLoggedAndSilent) {
    expectLogged("/dev/full", "Unable to write /dev/full: No space left on device");
}

TEST(RegistrySave, ARecordThatCannotBeWrittenLeavesTheFileAlone) {
    const test::ScratchDirectory directory;
    test::writeFile(directory / "f", "as before");
    PhpHandler handler = handlerWithId("a");
    handler.type = static_cast<PhpHandlerType>(4);
    EXPECT_THROW(save(registryOf({handler}), directory / "f"), std::runtime_error);
    EXPECT_EQ(test::readFile(directory / "f"), "as before");
}

TEST(RegistryRoundTrip, PrintableBytesTabAndLineEndsComeBack) {
    PhpHandler handler = fpmHandler();
    std::string printable = "\t\n\r\b\f";
    for (int byte = 0x20; byte < 256; ++byte) {
        printable += static_cast<char>(byte);
    }
    for (std::string* field : {&handler.id, &handler.displayname, &handler.path, &handler.clipath,
                               &handler.version, &handler.phpini, &handler.service, &handler.poold}) {
        *field = printable;
    }
    const HandlerRegistry again = saveAndLoad(registryOf({handler, handlerWithId("b")}));
    ASSERT_EQ(again.size(), 2U);
    EXPECT_EQ(again[0], handler);
    EXPECT_EQ(again[1], handlerWithId("b"));
}

TEST(RegistryRoundTrip, DisplayNameMayHoldAnyByte) {
    PhpHandler handler = handlerWithId("a");
    handler.displayname.clear();
    for (int byte = 0; byte < 256; ++byte) {
        handler.displayname += static_cast<char>(byte);
    }
    const HandlerRegistry again = saveAndLoad(registryOf({handler}));
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0], handler);
}

// Deliberate: what is written as \u0001 is refused when read.
TEST(RegistryRoundTrip, AControlByteIsWrittenAndThenRefused) {
    PhpHandler handler = handlerWithId("a\x01");
    const test::ScratchDirectory directory;
    const std::string path = directory / "f";
    save(registryOf({handler}), path);
    EXPECT_EQ(test::readFile(path).substr(0, 26), "{\"php\":[\n{\n\t\"id\":\"a\\u0001\"");
    HandlerRegistry again;
    try {
        load(again, path);
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_EQ(
            failure.what(),
            "Error reading " + path +
                ": can not parse php_versions_info object : Invalid or unsupported Unicode character or "
                "escape sequence found in string. UTF8 encoded characters and '\\u' escape sequences are "
                "not supported. Error occured at offset 20, character 'u'. ");
    }
}

// Deliberate: the value is lost and the file no longer loads.
TEST(RegistryRoundTrip, AnOverlongValueIsWrittenAsNullAndThenRefused) {
    PhpHandler handler = handlerWithId("a");
    handler.path = std::string(4088, 'p');
    const test::ScratchDirectory directory;
    const std::string path = directory / "f";
    save(registryOf({handler}), path);
    HandlerRegistry again;
    try {
        load(again, path);
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_EQ(failure.what(), "Error reading " + path +
                                      ": can not parse php_versions_info object : String is expected. Error "
                                      "occured at offset 30, character 'n'. ");
    }
}

TEST(RegistryRoundTrip, TheNextSaveDropsADuplicate) {
    const test::ScratchDirectory directory;
    const std::string path = directory / "f";
    save(registryOf({handlerWithId("a"), handlerWithId("a")}), path);
    HandlerRegistry registry;
    {
        const test::CaughtErrors errors;
        load(registry, path);
        EXPECT_EQ(errors.text(), "[Warning] conflicting handler with id `a' found. Ignoring\n");
    }
    EXPECT_EQ(saveAndLoad(registry).size(), 1U);
}

TEST(RegistryRoundTrip, ServiceAndPoolOfOtherTypesAreDropped) {
    PhpHandler handler = fpmHandler();
    handler.type = PhpHandlerType::cgi;
    const HandlerRegistry again = saveAndLoad(registryOf({handler}));
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].service + again[0].poold, "");
}

} // namespace quelm
