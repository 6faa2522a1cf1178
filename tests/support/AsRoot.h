// For tests that really become another user, which takes root.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quelm::test {

enum class Rights { present, borrowed, none };

// As root there is nothing to do. Else the current test is run again as the root of a user namespace whose
// users are mapped; `borrowed` then means that it has run there and, with its verdict taken over, is done.
inline Rights becomeRoot() {
    if (::geteuid() == 0) {
        return Rights::present;
    }
    const std::string enter = "unshare --user --map-root-user --map-auto ";
    if (std::system((enter + "true 2>/dev/null").c_str()) != 0) {
        return Rights::none;
    }
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string(test->test_suite_name()) + "." + test->name();
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    EXPECT_EQ(std::system((enter + self + " --gtest_filter=" + filter).c_str()), 0) << "in a user namespace";
    return Rights::borrowed;
}

} // namespace quelm::test

// First line of such a test.
#define TAMRIX_TEST_AS_ROOT()                                                                                \
    switch (quelm::test::becomeRoot()) {                                                                     \
    case quelm::test::Rights::none:                                                                          \
        GTEST_SKIP() << "neither root nor a user namespace with mapped users is to be had";                  \
    case quelm::test::Rights::borrowed:                                                                      \
        return;                                                                                              \
    case quelm::test::Rights::present:                                                                       \
        break;                                                                                               \
    }                                                                                                        \
    static_assert(true, "takes the semicolon")
