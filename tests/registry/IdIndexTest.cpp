#include "registry/IdIndex.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quelm {

namespace {

// The records, which the index does not own.
class Ids {
public:
    explicit Ids(std::vector<std::string> ids) : ids_(std::move(ids)) { index.reset(ids_.size()); }

    bool add(std::size_t position) { return index.add(ids_[position], position, at()); }
    bool has(const std::string& id) const { return index.contains(id, at()); }

    IdIndex index;

private:
    std::function<std::string_view(std::size_t)> at() const {
        return [this](std::size_t position) { return std::string_view(ids_[position]); };
    }

    std::vector<std::string> ids_;
};

} // namespace

TEST(IdIndex, AnIdIsAddedOnce) {
    Ids ids({"a", "b", "a", ""});
    EXPECT_TRUE(ids.add(0));
    EXPECT_TRUE(ids.add(1));
    EXPECT_FALSE(ids.add(2));
    EXPECT_FALSE(ids.has(""));
    EXPECT_TRUE(ids.add(3));
    EXPECT_TRUE(ids.has("a"));
    EXPECT_TRUE(ids.has("b"));
    EXPECT_TRUE(ids.has(""));
    EXPECT_FALSE(ids.has("c"));
}

TEST(IdIndex, HasRoomForAtLeastWhatWasAskedFor) {
    IdIndex index;
    EXPECT_FALSE(index.hasRoom(1));
    for (const std::size_t count : {0U, 1U, 2U, 3U, 100U, 1000U}) {
        index.reset(count);
        EXPECT_TRUE(index.hasRoom(count + 1)) << count;
        EXPECT_FALSE(index.hasRoom(4 * count + 5)) << count;
    }
    index.clear();
    EXPECT_FALSE(index.hasRoom(1));
}

TEST(IdIndex, ThousandsOfIdsAreAllFoundAgain) {
    std::vector<std::string> names;
    for (int number = 0; number < 5000; ++number) {
        names.push_back("id" + std::to_string(number));
    }
    Ids ids(names);
    for (std::size_t position = 0; position < names.size(); ++position) {
        ASSERT_FALSE(ids.has(names[position]));
        ASSERT_TRUE(ids.add(position));
        ASSERT_TRUE(ids.has(names[position]));
    }
    for (std::size_t position = 0; position < names.size(); ++position) {
        ASSERT_FALSE(ids.add(position));
    }
}

// Two ids of the same place whose hashes have the same upper half, which is all that the index keeps of them.
std::pair<std::string, std::string> likeIds() {
    constexpr std::size_t places = 8; // of an index for two
    std::unordered_map<std::size_t, std::string> seen;
    for (int number = 0;; ++number) {
        std::string id = "id" + std::to_string(number);
        const std::size_t hash = std::hash<std::string_view>{}(id);
        const auto [other, isNew] = seen.try_emplace((hash & ~std::size_t{0xffffffff}) | hash % places, id);
        if (!isNew) {
            return {other->second, id};
        }
    }
}

TEST(IdIndex, IdsThatOnlyLookTheSameToItAreTwo) {
    const auto [first, second] = likeIds();
    Ids ids({first, second});
    EXPECT_TRUE(ids.add(0));
    EXPECT_FALSE(ids.has(second));
    EXPECT_TRUE(ids.add(1));
    EXPECT_TRUE(ids.has(first));
    EXPECT_TRUE(ids.has(second));
}

TEST(IdIndex, AResetForgets) {
    Ids ids({"a"});
    EXPECT_TRUE(ids.add(0));
    ids.index.reset(1);
    EXPECT_FALSE(ids.has("a"));
}

} // namespace quelm
