// The two directions of the pump between a run's pipes and its callbacks. The pipe ends are non-blocking.
#pragma once

#include <cstddef>

namespace quelm {

// Puts at most `capacity` bytes into the buffer and returns how many; 0 ends the input.
using SourceCallback = std::size_t (*)(char* buffer, std::size_t capacity, void* context);

// Takes `count` bytes, which are valid during the call.
using SinkCallback = void (*)(const char* bytes, std::size_t count, void* context);

// keepOpen: nothing more can be moved now. finished: the descriptor is to be closed.
enum class Transfer { keepOpen, finished };

// A block of bytes on its way. `pending` counts those at its front that a write left over.
struct TransferBuffer {
    char* bytes;
    std::size_t capacity;
    std::size_t pending = 0;
};

// Reads what there is and hands it to the sink, block by block; a null sink drops it. Finished at end of
// file. Leaves errno at EAGAIN when the pipe was found empty. Throws SystemError "readToCallback failed" and
// what the sink throws.
Transfer readToCallback(int descriptor, const TransferBuffer& buffer, SinkCallback sink, void* context);

// Writes the pending bytes and then what the source gives, as much as the pipe takes. Finished when the
// source gives nothing (a null source at once) or nobody reads any more; then the rest of the input is
// dropped. SIGPIPE must be ignored. Throws SystemError "writeFromCallback failed" and what the source throws.
Transfer writeFromCallback(int descriptor, TransferBuffer& buffer, SourceCallback source, void* context);

} // namespace quelm
