// capture INTERPRETER: the library's run-and-capture loop beside a bare fork, exec, read, wait, in one
// process and in turn: for a child that prints one line, and for one that prints a MiB on each stream.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/Bare.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/ForkExecv.h"

namespace {

using quelm::ArgVector;

template <class Work>
double secondsOf(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

struct Comparison {
    const char* name;
    bare::Child child;
    bool keep;
    int rounds;
};

long captured(const ArgVector& arguments, bool keep) {
    std::string output;
    std::string error;
    const int status =
        quelm::forkExecvGetOutErr(std::string(), keep ? &output : nullptr, keep ? &error : nullptr,
                                  arguments.get()[0], arguments.get());
    return status == 0 ? static_cast<long>(output.size() + error.size()) : -1;
}

void compare(const Comparison& comparison, const ArgVector& arguments) {
    std::vector<double> ours;
    std::vector<double> bares;
    std::vector<double> ratios;
    for (int round = 0; round < comparison.rounds; ++round) {
        long bytes = 0;
        bare::Outcome outcome;
        ours.push_back(secondsOf([&] { bytes = captured(arguments, comparison.keep); }));
        bares.push_back(
            secondsOf([&] { outcome = bare::run(arguments.data(), comparison.child, comparison.keep); }));
        ratios.push_back(ours.back() / bares.back());
        if (outcome.bytes <= 0 || bytes != (comparison.keep ? outcome.bytes : 0)) {
            std::fprintf(stderr, "%s: %ld bytes beside %ld\n", comparison.name, bytes, outcome.bytes);
            std::exit(1);
        }
    }
    std::printf("%-34s %8.3f ms   bare %8.3f ms   ratio %6.3f (%5.3f to %5.3f)\n", comparison.name,
                quantile(ours, 0.5) * 1e3, quantile(bares, 0.5) * 1e3, quantile(ratios, 0.5),
                quantile(ratios, 0.25), quantile(ratios, 0.75));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: capture INTERPRETER\n");
        return 2;
    }
    const ArgVector line{argv[1]};
    const ArgVector flood{argv[1], "--flood"};
    using bare::Child;
    compare({"one line, plain child", Child::plain, true, 3000}, line);
    compare({"one line, careful child", Child::careful, true, 3000}, line);
    compare({"2 x 1 MiB kept, plain child", Child::plain, true, 600}, flood);
    compare({"2 x 1 MiB dropped, plain child", Child::plain, false, 600}, flood);
    return 0;
}
