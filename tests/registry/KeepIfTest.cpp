#include <stdexcept>

#include <gtest/gtest.h>

#include "registry/HandlerRegistry.h"

namespace {

using quelm::HandlerRegistry;
using quelm::PhpHandler;

HandlerRegistry registryOf(const std::string& ids) {
    HandlerRegistry registry;
    for (const char id : ids) {
        PhpHandler handler;
        handler.id = std::string(1, id);
        add(registry, handler);
    }
    return registry;
}

std::string idsOf(const HandlerRegistry& registry) {
    std::string ids;
    for (const PhpHandler& handler : registry) {
        ids += handler.id;
    }
    return ids;
}

std::string kept(const std::string& ids, const std::string& unwanted) {
    HandlerRegistry registry = registryOf(ids);
    registry.keepIf(
        [&](const PhpHandler& handler) { return unwanted.find(handler.id) == std::string::npos; });
    return idsOf(registry);
}

TEST(KeepIf, RemovesWhatIsRefusedAndKeepsTheOrderOfTheRest) {
    EXPECT_EQ(kept("abcdef", ""), "abcdef");
    EXPECT_EQ(kept("abcdef", "a"), "bcdef");
    EXPECT_EQ(kept("abcdef", "cd"), "abef");
    EXPECT_EQ(kept("abcdef", "ace"), "bdf");
    EXPECT_EQ(kept("abcdef", "ef"), "abcd");
    EXPECT_EQ(kept("abcdef", "abcdef"), "");
    EXPECT_EQ(kept("", ""), "");
}

TEST(KeepIf, AsksForEachRecordOnceFromFirstToLast) {
    HandlerRegistry registry = registryOf("abcd");
    std::string asked;
    registry.keepIf([&](const PhpHandler& handler) {
        asked += handler.id;
        return handler.id == "d";
    });
    EXPECT_EQ(asked, "abcd");
}

TEST(KeepIf, KeepsWhatWasChanged) {
    HandlerRegistry registry = registryOf("abc");
    registry.keepIf([](PhpHandler& handler) {
        handler.version = handler.id + "!";
        return handler.id != "a";
    });
    EXPECT_EQ(registry[0].version, "b!");
    EXPECT_EQ(registry[1].version, "c!");
}

TEST(KeepIf, AnExceptionLeavesTheRecordAtHandAndThoseBehindIt) {
    HandlerRegistry registry = registryOf("abcde");
    EXPECT_THROW(registry.keepIf([](const PhpHandler& handler) {
        if (handler.id == "d") {
            throw std::runtime_error("d");
        }
        return handler.id == "b";
    }),
                 std::runtime_error);
    EXPECT_EQ(idsOf(registry), "bde");
}

TEST(KeepIf, RemovedIdsAreFree) {
    HandlerRegistry registry = registryOf("ab");
    registry.keepIf([](const PhpHandler& handler) { return handler.id != "a"; });
    PhpHandler again;
    again.id = "a";
    add(registry, again);
    EXPECT_EQ(idsOf(registry), "ba");
}

// Closing a gap for each record that goes would take hours here, and a test has two minutes.
TEST(KeepIf, ManyRecordsAreRemovedInOnePass) {
    HandlerRegistry registry;
    for (int number = 0; number < 300000; ++number) {
        PhpHandler handler;
        handler.id = std::to_string(number);
        registry.append(handler);
    }
    registry.keepIf([](const PhpHandler& handler) { return (handler.id.back() - '0') % 2 == 0; });
    ASSERT_EQ(registry.size(), 150000U);
    EXPECT_EQ(registry[149999].id, "299998");
}

} // namespace
