#include "registry/HandlerRegistry.h"

#include <stdexcept>
#include <typeinfo>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

using test::handlerWithId;
using test::idsOf;
using test::registryWithIds;

TEST(HandlerRegistryAdd, AppendsCopiesInOrder) {
    HandlerRegistry registry;
    PhpHandler handler = handlerWithId("b");
    add(registry, handler);
    handler.id = "a";
    add(registry, handler);
    handler.path = "changed";
    EXPECT_EQ(idsOf(registry), "ba");
    EXPECT_EQ(registry[1], handlerWithId("a"));
}

TEST(HandlerRegistryAdd, AnEmptyIdIsAPlainRuntimeErrorAndATakenOneIsRefused) {
    HandlerRegistry registry = registryWithIds("ab");
    try {
        add(registry, handlerWithId(""));
        ADD_FAILURE();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "Undefined php handler id");
        EXPECT_EQ(typeid(failure), typeid(std::runtime_error));
    }
    try {
        add(registry, handlerWithId("b"));
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_STREQ(failure.what(), "Handler with id = `b' already exists");
    }
    EXPECT_EQ(idsOf(registry), "ab");
}

TEST(HandlerRegistryAdd, IdsAreComparedByteByByte) {
    HandlerRegistry registry;
    for (const std::string& id : {std::string("a"), std::string("A"), std::string(" a"), std::string("a "),
                                  std::string("\xff"), std::string("a\0", 2)}) {
        EXPECT_NO_THROW(add(registry, handlerWithId(id)));
    }
    EXPECT_EQ(registry.size(), 6U);
}

TEST(HandlerRegistryFind, FirstExactMatchOrNull) {
    HandlerRegistry registry = registryWithIds("xaba");
    const HandlerRegistry& unchanging = registry;
    EXPECT_EQ(find(registry, "a"), &registry[1]);
    EXPECT_EQ(find(unchanging, "a"), &registry[1]);
    for (const char* id : {"A", "", "ab"}) {
        EXPECT_EQ(find(registry, id), nullptr);
        EXPECT_EQ(find(unchanging, id), nullptr);
    }
    find(registry, "b")->path = "edited";
    EXPECT_EQ(registry[2].path, "edited");
}

TEST(HandlerRegistryRemove, KeepsTheOrderOfTheRestAndRefusesAnUnknownId) {
    HandlerRegistry registry = registryWithIds("abcd");
    remove(registry, "b");
    EXPECT_EQ(idsOf(registry), "acd");
    remove(registry, registry[0].id);
    remove(registry, "d");
    EXPECT_EQ(idsOf(registry), "c");
    try {
        remove(registry, "C");
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_STREQ(failure.what(), "Handler with id = `C' not found");
    }
    EXPECT_EQ(idsOf(registry), "c");
    registry = registryWithIds("abc");
    erase(registry, 1);
    EXPECT_EQ(idsOf(registry), "ac");
    erase(registry, 1);
    EXPECT_EQ(idsOf(registry), "a");
}

TEST(HandlerRegistryKeepIf, RemovesWhatIsRefusedAndKeepsTheOrderOfTheRest) {
    for (const auto& [unwanted, rest] : {std::pair{"", "abcdef"},
                                         {"a", "bcdef"},
                                         {"cd", "abef"},
                                         {"ace", "bdf"},
                                         {"ef", "abcd"},
                                         {"abcdef", ""}}) {
        HandlerRegistry registry = registryWithIds("abcdef");
        std::string asked;
        registry.keepIf([&, refused = std::string(unwanted)](const PhpHandler& handler) {
            asked += handler.id;
            return refused.find(handler.id) == std::string::npos;
        });
        EXPECT_EQ(idsOf(registry), rest);
        EXPECT_EQ(asked, "abcdef");
    }
}

TEST(HandlerRegistryKeepIf, KeepsWhatWasChangedAndAnExceptionEmptiesTheRegistry) {
    HandlerRegistry registry = registryWithIds("abc");
    registry.keepIf([](PhpHandler& handler) {
        handler.version = handler.id + "!";
        return handler.id != "a";
    });
    EXPECT_EQ(registry[0].version, "b!");
    EXPECT_EQ(registry[1].version, "c!");
    EXPECT_THROW(registry.keepIf([](const PhpHandler&) -> bool { throw 42; }), int);
    EXPECT_TRUE(registry.empty());
}

// One by one this would take hours, and a test has two minutes.
TEST(HandlerRegistryKeepIf, ManyRecordsAreRemovedInOnePass) {
    HandlerRegistry registry;
    for (int number = 0; number < 300000; ++number) {
        registry.append(handlerWithId(std::to_string(number)));
    }
    registry.keepIf([](const PhpHandler& handler) { return (handler.id.back() - '0') % 2 == 0; });
    ASSERT_EQ(registry.size(), 150000U);
    EXPECT_EQ(registry[149999].id, "299998");
}

TEST(HandlerView, HasTheTextsOfARecordAndMakesAnother) {
    const PhpHandler handler = test::fpmHandler();
    const HandlerView view = handler;
    EXPECT_EQ(view.type, "fpm");
    EXPECT_EQ(view.path.data(), handler.path.data());
    EXPECT_EQ(view.record(), handler);
    EXPECT_EQ(HandlerView().displayname.data() == nullptr, false);
}

TEST(HandlerView, AnUnknownTypeThrows) {
    PhpHandler handler = handlerWithId("b");
    handler.type = static_cast<PhpHandlerType>(5);
    EXPECT_THROW(HandlerView{handler}, std::runtime_error);
    HandlerView view;
    view.type = "FPM";
    EXPECT_THROW(view.record(), QuelmUtilException);
}

} // namespace quelm
