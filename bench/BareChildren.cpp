// children COUNT PROGRAM WORD...: runs the program COUNT times with the bare loop and does nothing else.
#include <cstdio>
#include <cstdlib>

#include "bench/Bare.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: children COUNT PROGRAM WORD...\n");
        return 2;
    }
    for (int count = std::atoi(argv[1]); count > 0; --count) {
        if (bare::run(argv + 2) < 0) {
            return 1;
        }
    }
    return 0;
}
