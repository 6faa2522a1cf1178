// A growing block on the C heap for what a child prints.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

#include "lib/process/lib/UniqueFd.h"

namespace quelm {

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};
// A NUL-terminated text that malloc made.
using CText = std::unique_ptr<char, FreeBlock>;

class OutputBuffer {
public:
    // One read from the non-blocking `end` to behind what is there; the block is grown first so that more
    // than 2048 bytes are free. At end of file `end` is closed. A failed read closes it too, prints
    // "fork_exec*: read(pipe) failed: REASON" on standard error and leaves errno 0; having nothing to read
    // yet is no failure and leaves EAGAIN. When memory runs out, fatal_message says "Cannot allocate memory"
    // and the process ends with status 1.
    void readOnce(UniqueFd& end);

    std::size_t length() const { return length_; }
    std::size_t capacity() const { return capacity_; }

    // Gives the block away, NUL-terminated, to be released with free; null if nothing was ever read from.
    char* release();

private:
    void makeRoom();

    CText block_;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace quelm
