#include "registry/RegistryDocument.h"

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "tests/registry/TestRegistry.h"

namespace {

int reallocGrants = -1; // -1: as many as wanted

} // namespace

extern "C" {
void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
    if (reallocGrants == 0) {
        errno = ENOMEM;
        return nullptr;
    }
    reallocGrants -= reallocGrants > 0 ? 1 : 0;
    return __real_realloc(block, size);
}
}

namespace quelm {

namespace {

const std::string record =
    R"({"id":"a","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"})";

std::string documentOf(std::size_t count) {
    std::string text = R"({"php":[)";
    for (std::size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ",\n") + record;
    }
    return text + "]}";
}

// A document of one record whose members stand in this order; each text is its member's name.
std::string documentInOrder(const std::vector<std::string>& names) {
    std::string members;
    for (const std::string& name : names) {
        members += members.empty() ? "" : ",";
        members += '"' + name + "\":" + (name == "system" ? "true" : '"' + name + '"');
    }
    return R"({"php":[{)" + members + "}]}";
}

void expectEveryMember(const HandlerObject& handler) {
    EXPECT_STREQ(handler.id, "id");
    EXPECT_STREQ(handler.path, "path");
    EXPECT_STREQ(handler.clipath, "clipath");
    EXPECT_STREQ(handler.phpini, "phpini");
    EXPECT_STREQ(handler.version, "version");
    EXPECT_STREQ(handler.displayname, "displayname");
    EXPECT_STREQ(handler.typeName, "type");
    EXPECT_TRUE(handler.system);
    EXPECT_STREQ(handler.service, "service");
    EXPECT_STREQ(handler.poold, "poold");
}

// Lets memory be taken or enlarged a number of times by realloc, and then no more.
class LimitedMemory {
public:
    explicit LimitedMemory(int grants) { reallocGrants = grants; }
    LimitedMemory(const LimitedMemory&) = delete;
    LimitedMemory& operator=(const LimitedMemory&) = delete;
    ~LimitedMemory() { reallocGrants = -1; }
};

std::string failureOfLoading(const std::string& text) {
    const test::ScratchDirectory directory;
    const std::string path = directory / "registry.json";
    test::writeFile(path, text);
    HandlerRegistry registry = test::registryOf({test::handlerWithId("stale")});
    const test::CaughtErrors warnings;
    try {
        load(registry, path);
    } catch (const QuelmUtilException& failure) {
        EXPECT_TRUE(registry.empty());
        const std::string message = failure.what();
        const std::string front = "Error reading " + path + ": ";
        EXPECT_EQ(message.substr(0, front.size()), front);
        return message.substr(front.size());
    }
    return "";
}

} // namespace

TEST(RegistryDocument, AnyMemberMayFollowAnyOther) {
    const std::vector<std::string> names{"id",          "path", "clipath", "phpini",  "version",
                                         "displayname", "type", "system",  "service", "poold"};
    for (std::size_t first = 0; first < names.size(); ++first) {
        for (std::size_t second = 0; second < names.size(); ++second) {
            std::vector<std::string> order = names;
            std::swap(order[0], order[first]);
            std::swap(order[1], order[second]);
            std::string text = documentInOrder(order);
            SCOPED_TRACE(text);
            RegistryDocument document(text.data(), text.size());
            ASSERT_TRUE(document.parse());
            ASSERT_EQ(document.handlers().size(), 1u);
            expectEveryMember(document.handlers()[0]);
        }
    }
}

TEST(RegistryDocument, HasRoomForEighteenAndDoubles) {
    for (const auto& [count, capacity] :
         {std::pair<std::size_t, std::size_t>{0, 18}, {18, 18}, {19, 36}, {36, 36}, {37, 72}}) {
        std::string text = documentOf(count);
        RegistryDocument document(text.data(), text.size());
        ASSERT_TRUE(document.parse());
        EXPECT_EQ(document.handlers().size(), count);
        EXPECT_EQ(document.handlers().capacity(), capacity);
    }
}

TEST(RegistryDocument, StringsLieInTheText) {
    std::string text = documentOf(1);
    RegistryDocument document(text.data(), text.size());
    ASSERT_TRUE(document.parse());
    const char* const id = document.handlers()[0].id;
    EXPECT_STREQ(id, "a");
    EXPECT_GE(id, text.data());
    EXPECT_LT(id, text.data() + text.size());
}

TEST(RegistryDocument, MissingMemoryForItsStateFailsTheLoad) {
    const LimitedMemory memory(0);
    EXPECT_EQ(failureOfLoading(documentOf(1)), "can not create php_versions_info object");
}

TEST(RegistryDocument, MissingMemoryForAHandlerIsCode20) {
    {
        const LimitedMemory memory(1);
        EXPECT_EQ(failureOfLoading(documentOf(18)), "");
    }
    {
        const LimitedMemory memory(1);
        EXPECT_EQ(
            failureOfLoading(documentOf(19)),
            "can not parse php_versions_info object : Failed to allocate memory. Error occured at offset " +
                std::to_string(8 + 18 * (record.size() + 2)) +
                ", character '{'. Also system error occured: Cannot allocate memory (12).");
    }
    const LimitedMemory memory(1);
    std::string text = documentOf(19);
    RegistryDocument document(text.data(), text.size());
    EXPECT_FALSE(document.parse());
    EXPECT_EQ(document.error().code, JsonErrorCode::outOfMemory);
    EXPECT_EQ(document.error().offset, 8 + 18 * (record.size() + 2));
    EXPECT_EQ(document.error().character, '{');
}

TEST(RegistryDocument, CutAnywhereItNeverLoads) {
    const std::string text = R"({"other":{"a":[1.5e+3,-2,null,true,false,"x\u0000\n"]},"php":[)" + record +
                             R"(, {"system":true,"service":"s","poold":"\t\"",)" + record.substr(1) + "]\n}";
    const test::ScratchDirectory directory;
    const std::string path = directory / "registry.json";
    for (std::size_t length = 1; length < text.size(); ++length) {
        test::writeFile(path, text.substr(0, length));
        HandlerRegistry registry;
        EXPECT_THROW(load(registry, path), QuelmUtilException) << length;
        EXPECT_TRUE(registry.empty());
    }
    test::writeFile(path, text);
    const test::CaughtErrors errors;
    HandlerRegistry registry;
    EXPECT_NO_THROW(load(registry, path));
    EXPECT_EQ(registry.size(), 1U);
}

TEST(RegistryDocument, AnyByteAnywhereLoadsOrIsRefused) {
    const std::string text = R"({"x":[{"y":-1.0E5},"\n"],"php":[)" + record + "]}";
    for (std::size_t position = 0; position < text.size(); ++position) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string changed = text;
            changed[position] = static_cast<char>(byte);
            RegistryDocument document(changed.data(), changed.size());
            if (!document.parse()) {
                EXPECT_NE(document.error().code, JsonErrorCode::none);
                EXPECT_LE(document.error().offset, text.size());
            }
        }
    }
}

TEST(RegistryDocument, DroppedMemberMayNestAMillionDeep) {
    constexpr std::size_t depth = 1000000;
    const std::string deep = std::string(depth, '[') + std::string(depth, ']');
    std::string text = "{\"x\":" + deep + ",\"php\":[{\"y\":" + deep + "," + record.substr(1) + "]}";
    RegistryDocument document(text.data(), text.size());
    EXPECT_TRUE(document.parse());
    EXPECT_EQ(document.handlers().size(), 1U);
}

} // namespace quelm
