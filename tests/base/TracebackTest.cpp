#include "base/Traceback.h"

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

using quelm::demangle;
using quelm::readableFrame;
using quelm::readableTypeName;

TEST(Demangle, GivesTheReadableNameOfAMangledOne) {
    EXPECT_EQ(demangle("_ZN5quelm8dispatchEiPPc"), "quelm::dispatch(int, char**)");
    EXPECT_EQ(demangle("main()"), std::nullopt);
    EXPECT_EQ(demangle(""), std::nullopt);
    EXPECT_EQ(readableTypeName("not-a-name"), "not-a-name");
    EXPECT_EQ(readableTypeName("*St13runtime_error"), "std::runtime_error");
    EXPECT_EQ(readableTypeName("*not-a-name"), "not-a-name");
}

// It stands between the first bracket and the first plus behind it.
TEST(ReadableFrame, ReplacesAMangledNameAndNothingElse) {
    EXPECT_EQ(readableFrame("/opt/c++/prog(_ZN5quelm10printUsageEv+0x12) [0x55d0]"),
              "/opt/c++/prog(quelm::printUsage()+0x12) [0x55d0]");
    EXPECT_EQ(readableFrame("prog(_ZN5quelm10printUsageEv+0x12+3) (x+1)"),
              "prog(quelm::printUsage()+0x12+3) (x+1)");
    for (const char* line : {"prog(main+0x1c) [0x55d0]", "prog(+0x1c) [0x55d0]", "prog() [0x55d0]",
                             "prog [0x55d0]", "c++ [0x55d0]", ""}) {
        EXPECT_EQ(readableFrame(line), line);
    }
}

namespace {
bool symbolsFail = false;
int symbolCalls = 0;
bool captureFails = false;
} // namespace

extern "C" {
int __real_backtrace(void** addresses, int count);
int __wrap_backtrace(void** addresses, int count) {
    return captureFails ? -1 : __real_backtrace(addresses, count);
}
char** __real_backtrace_symbols(void* const* addresses, int count);
char** __wrap_backtrace_symbols(void* const* addresses, int count) {
    ++symbolCalls;
    return symbolsFail ? nullptr : __real_backtrace_symbols(addresses, count);
}
}

namespace traceback_test {

// Exported under a name that a trace must show in its readable form.
[[gnu::noinline]] quelm::Traceback captureHere(std::uint64_t skip);
quelm::Traceback captureHere(std::uint64_t skip) {
    quelm::Traceback trace(skip);
    return trace;
}

[[gnu::noinline]] quelm::Traceback captureDeep(int depth);
quelm::Traceback captureDeep(int depth) {
    return depth == 0 ? captureHere(0) : captureDeep(depth - 1);
}

} // namespace traceback_test

namespace {

using quelm::Traceback;

std::string print(const Traceback& trace) {
    std::ostringstream stream;
    trace.print(stream);
    return stream.str();
}

class TracebackPrint : public testing::Test {
protected:
    ~TracebackPrint() override {
        symbolsFail = false;
        captureFails = false;
    }
};

TEST_F(TracebackPrint, NamesTheFramesReadablyBehindATab) {
    const std::string text = print(traceback_test::captureHere(0));
    EXPECT_TRUE(text.starts_with("Traceback:\n\t")) << text;
    EXPECT_NE(text.find("(traceback_test::captureHere(unsigned long)+0x"), std::string::npos) << text;
}

TEST_F(TracebackPrint, KeepsElevenFramesAtMost) {
    const std::string text = print(traceback_test::captureDeep(30));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 11);
}

// How many frames stand up to and with that of captureHere: a sanitizer adds some of its own before it.
std::uint64_t framesUpToCapture(const std::string& trace) {
    const auto capture = trace.find("captureHere");
    return static_cast<std::uint64_t>(
        std::count(trace.begin(), trace.begin() + static_cast<std::ptrdiff_t>(capture), '\n'));
}

TEST_F(TracebackPrint, LeavesOutTheSkippedFrames) {
    const std::string all = print(traceback_test::captureHere(0));
    ASSERT_NE(all.find("captureHere"), std::string::npos) << all;
    const std::uint64_t skip = framesUpToCapture(all);
    const std::string less = print(traceback_test::captureHere(skip));
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n') - std::count(less.begin(), less.end(), '\n'),
              static_cast<std::ptrdiff_t>(skip));
    EXPECT_EQ(less.find("captureHere"), std::string::npos) << less;
    const std::string oneMore = print(traceback_test::captureHere(skip - 1));
    EXPECT_NE(oneMore.find("captureHere"), std::string::npos) << oneMore;
}

TEST_F(TracebackPrint, WithoutSymbolLinesTheAddressesAreShown) {
    symbolsFail = true;
    const std::string text = print(traceback_test::captureHere(0));
    EXPECT_TRUE(text.starts_with("Traceback addresses:\n\t0x") && text.ends_with("\n")) << text;
    const auto frames = std::count(text.begin(), text.end(), '\n') - 1;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\t'), frames);
    EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), frames);
    EXPECT_TRUE(frames >= 2 && frames <= 11) << text;
    EXPECT_EQ(text.find_first_not_of("0123456789abcdefx\t\n", text.find('\t')), std::string::npos) << text;
}

TEST_F(TracebackPrint, NoFramesOrFewerThanToSkipGiveOnlyTheAddressesHeader) {
    EXPECT_EQ(print(Traceback(50)), "Traceback addresses:\n");
    captureFails = true;
    EXPECT_EQ(print(Traceback(0)), "Traceback addresses:\n");
    EXPECT_EQ(print(Traceback(3)), "Traceback addresses:\n");
}

TEST_F(TracebackPrint, EveryLineIsFlushed) {
    for (const bool failing : {false, true}) {
        symbolsFail = failing;
        quelm::test::FlushedText text;
        std::ostream stream(&text);
        traceback_test::captureHere(0).print(stream);
        EXPECT_EQ(text.flushed, text.str());
        EXPECT_GT(std::count(text.flushed.begin(), text.flushed.end(), '\n'), 1);
    }
}

TEST_F(TracebackPrint, AskForSymbolsAgainOnlyUntilTheyCame) {
    const Traceback trace = traceback_test::captureHere(0);
    symbolCalls = 0;
    symbolsFail = true;
    print(trace);
    symbolsFail = false;
    const std::string first = print(trace);
    EXPECT_EQ(print(trace), first);
    EXPECT_EQ(symbolCalls, 2);
}

TEST_F(TracebackPrint, CopiesOwnTheirSymbolLines) {
    const Traceback original = traceback_test::captureHere(0);
    const std::string text = print(original);
    const Traceback copy(original);
    Traceback assigned(50);
    EXPECT_EQ(print(assigned), "Traceback addresses:\n");
    assigned = original;
    EXPECT_EQ(print(copy), text);
    EXPECT_EQ(print(assigned), text);
    const Traceback& same = assigned;
    assigned = same;
    EXPECT_EQ(print(assigned), text);
}

} // namespace
