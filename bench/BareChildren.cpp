// children plain|careful COUNT PROGRAM WORD...: runs the program COUNT times with the bare loop and does
// nothing else.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bench/Bare.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: children plain|careful COUNT PROGRAM WORD...\n");
        return 2;
    }
    const auto kind = std::string_view(argv[1]) == "careful" ? bare::Child::careful : bare::Child::plain;
    for (int count = std::atoi(argv[2]); count > 0; --count) {
        if (bare::run(argv + 3, kind, true).bytes < 0) {
            return 1;
        }
    }
    return 0;
}
