#include "registry/HandlerRegistry.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <typeinfo>
#include <utility>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

using test::handlerWithId;
using test::ids;
using test::registryOf;

TEST(HandlerRegistryAdd, AppendsCopiesInOrder) {
    HandlerRegistry registry;
    PhpHandler handler = handlerWithId("b");
    add(registry, handler);
    handler.id = "a";
    add(registry, handler);
    EXPECT_EQ(ids(registry), "b a ");
    handler.path = "changed";
    EXPECT_EQ(registry[1], handlerWithId("a"));
}

TEST(HandlerRegistryAdd, EmptyIdIsAPlainRuntimeError) {
    HandlerRegistry registry;
    try {
        add(registry, handlerWithId(""));
        ADD_FAILURE();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "Undefined php handler id");
        EXPECT_EQ(typeid(failure), typeid(std::runtime_error));
    }
    EXPECT_TRUE(registry.empty());
}

TEST(HandlerRegistryAdd, TakenIdIsRefused) {
    HandlerRegistry registry = registryOf({handlerWithId("a"), handlerWithId("b")});
    try {
        add(registry, handlerWithId("b"));
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_STREQ(failure.what(), "Handler with id = `b' already exists");
    }
    EXPECT_EQ(ids(registry), "a b ");
}

TEST(HandlerRegistryAdd, IdsAreComparedByteByByte) {
    HandlerRegistry registry;
    for (const std::string id : {"a", "A", " a", "a ", "a%", "\xff"}) {
        EXPECT_NO_THROW(add(registry, handlerWithId(id)));
    }
    EXPECT_NO_THROW(add(registry, handlerWithId(std::string("a\0", 2))));
    EXPECT_EQ(registry.size(), 7U);
}

TEST(HandlerRegistryAdd, SeesAnIdThatWasChangedInPlace) {
    HandlerRegistry registry;
    add(registry, handlerWithId("a"));
    find(registry, "a")->id = "b";
    EXPECT_THROW(add(registry, handlerWithId("b")), QuelmUtilException);
    EXPECT_NO_THROW(add(registry, handlerWithId("a")));
    registry[0].id = "c";
    EXPECT_THROW(add(registry, handlerWithId("c")), QuelmUtilException);
    for (PhpHandler& handler : registry) {
        handler.id += "2";
    }
    EXPECT_NO_THROW(add(registry, handlerWithId("c")));
    EXPECT_THROW(add(registry, handlerWithId("a2")), QuelmUtilException);
}

TEST(HandlerRegistryAdd, AnIdIsFreeAgainAfterItsRecordWent) {
    HandlerRegistry registry;
    add(registry, handlerWithId("a"));
    add(registry, handlerWithId("b"));
    erase(registry, 0);
    EXPECT_THROW(add(registry, handlerWithId("b")), QuelmUtilException);
    EXPECT_NO_THROW(add(registry, handlerWithId("a")));
    remove(registry, "b");
    EXPECT_NO_THROW(add(registry, handlerWithId("b")));
    registry.clear();
    EXPECT_NO_THROW(add(registry, handlerWithId("a")));
    EXPECT_EQ(ids(registry), "a ");
}

// contains() has just looked when a record goes: what it has learnt must not outlive the record.
TEST(HandlerRegistryAdd, WhatContainsHasLearntGoesWithTheRecord) {
    HandlerRegistry registry = registryOf({handlerWithId("a"), handlerWithId("b"), handlerWithId("c")});
    ASSERT_TRUE(registry.contains("a"));
    erase(registry, 0);
    EXPECT_FALSE(registry.contains("a"));
    EXPECT_TRUE(registry.contains("b"));
    EXPECT_TRUE(registry.contains("c"));
    registry.keepIf([](const PhpHandler& handler) { return handler.id != "b"; });
    EXPECT_FALSE(registry.contains("b"));
    EXPECT_TRUE(registry.contains("c"));
    registry.clear();
    EXPECT_FALSE(registry.contains("c"));
}

TEST(HandlerRegistryAdd, ACopyKnowsItsOwnIds) {
    HandlerRegistry registry;
    add(registry, handlerWithId("a"));
    HandlerRegistry copy = registry;
    add(copy, handlerWithId("b"));
    EXPECT_THROW(add(copy, handlerWithId("a")), QuelmUtilException);
    EXPECT_NO_THROW(add(registry, handlerWithId("b")));
}

TEST(HandlerRegistryAdd, KnowsItsIdsThroughAnySequenceOfChanges) {
    std::minstd_rand random(1);
    HandlerRegistry registry;
    for (int step = 0; step < 20000; ++step) {
        const std::string id = std::to_string(random() % 300);
        if (find(registry, id) == nullptr) {
            ASSERT_FALSE(registry.contains(id)) << id;
            ASSERT_NO_THROW(add(registry, handlerWithId(id)));
        } else if (random() % 3 == 0) {
            ASSERT_TRUE(registry.contains(id));
            remove(registry, id);
            ASSERT_FALSE(registry.contains(id)) << id;
        }
        // Asked without find(), whose result could be changed: the index of the last add stays in use.
        const std::string other = std::to_string(random() % 300);
        const auto& records = std::as_const(registry);
        ASSERT_EQ(registry.contains(other),
                  std::any_of(records.begin(), records.end(),
                              [&](const auto& record) { return record.id == other; }))
            << other;
    }
}

// Quadratic behaviour would take twenty minutes here, and a test has two.
TEST(HandlerRegistryAdd, ManyRecordsAreAddedQuickly) {
    HandlerRegistry registry;
    for (int i = 0; i < 400000; ++i) {
        add(registry, handlerWithId(std::to_string(i)));
    }
    EXPECT_EQ(registry.size(), 400000U);
    EXPECT_THROW(add(registry, handlerWithId("99999")), QuelmUtilException);
}

TEST(HandlerRegistryFind, ExactMatchOrNull) {
    HandlerRegistry registry = registryOf({handlerWithId("a"), handlerWithId("b")});
    EXPECT_EQ(find(registry, "b"), &registry[1]);
    EXPECT_EQ(find(registry, "B"), nullptr);
    EXPECT_EQ(find(registry, ""), nullptr);
    HandlerRegistry none;
    EXPECT_EQ(find(none, "a"), nullptr);
}

TEST(HandlerRegistryFind, TheFirstMatchCounts) {
    HandlerRegistry registry = registryOf({handlerWithId("x"), handlerWithId("a"), handlerWithId("a")});
    EXPECT_EQ(find(registry, "a"), &registry[1]);
}

TEST(HandlerRegistryRemove, KeepsTheOrderOfTheRest) {
    HandlerRegistry registry =
        registryOf({handlerWithId("a"), handlerWithId("b"), handlerWithId("c"), handlerWithId("d")});
    remove(registry, "b");
    EXPECT_EQ(ids(registry), "a c d ");
    remove(registry, "a");
    remove(registry, "d");
    EXPECT_EQ(ids(registry), "c ");
    remove(registry, "c");
    EXPECT_TRUE(registry.empty());
}

TEST(HandlerRegistryRemove, AcceptsTheIdOfTheRecordItself) {
    HandlerRegistry registry = registryOf({handlerWithId("a"), handlerWithId("b")});
    remove(registry, registry[0].id);
    EXPECT_EQ(ids(registry), "b ");
}

TEST(HandlerRegistryRemove, UnknownIdIsRefused) {
    HandlerRegistry registry = registryOf({handlerWithId("a")});
    try {
        remove(registry, "A");
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_STREQ(failure.what(), "Handler with id = `A' not found");
    }
    EXPECT_EQ(ids(registry), "a ");
}

TEST(HandlerRegistryErase, RemovesByPosition) {
    HandlerRegistry registry = registryOf({handlerWithId("a"), handlerWithId("b"), handlerWithId("c")});
    erase(registry, 1);
    EXPECT_EQ(ids(registry), "a c ");
    erase(registry, 1);
    EXPECT_EQ(ids(registry), "a ");
    erase(registry, 0);
    EXPECT_EQ(registry.size(), 0U);
}

} // namespace quelm
