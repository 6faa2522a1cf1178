// capture INTERPRETER: the library's run-and-capture loop beside a bare fork, exec, read, wait, in one
// process and in turn: for a child that prints one line, and for one that prints a MiB on each stream.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/Bare.h"
#include "lib/process/lib/ArgVector.h"
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

void compare(const char* name, const ArgVector& arguments, int rounds) {
    const std::string path = arguments.get()[0];
    std::vector<double> ours;
    std::vector<double> bares;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        std::string output;
        std::string error;
        ours.push_back(secondsOf([&] { quelm::forkExecvGetOutErr(output, error, path, arguments.get()); }));
        long bytes = 0;
        bares.push_back(secondsOf([&] { bytes = bare::run(arguments.data()); }));
        ratios.push_back(ours.back() / bares.back());
        if (bytes != static_cast<long>(output.size() + error.size())) {
            std::fprintf(stderr, "%s: %ld bytes beside %zu\n", name, bytes, output.size() + error.size());
            std::exit(1);
        }
    }
    std::printf("%-28s %10.3f ms   bare %8.3f ms   ratio %6.3f (%5.3f to %5.3f)\n", name,
                quantile(ours, 0.5) * 1e3, quantile(bares, 0.5) * 1e3, quantile(ratios, 0.5),
                quantile(ratios, 0.25), quantile(ratios, 0.75));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: capture INTERPRETER\n");
        return 2;
    }
    compare("capture of one line", ArgVector{argv[1]}, 3000);
    compare("capture of 2 x 1 MiB", ArgVector{argv[1], "--flood"}, 600);
    return 0;
}
