#include "lib/process/lib/PipeTransfer.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "lib/process/lib/SystemError.h"

namespace quelm {

Transfer readToCallback(int descriptor, const TransferBuffer& buffer, SinkCallback sink, void* context) {
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.bytes, buffer.capacity);
        if (count == 0) {
            return Transfer::finished;
        }
        if (count > 0) {
            if (sink != nullptr) {
                sink(buffer.bytes, static_cast<std::size_t>(count), context);
            }
        } else if (errno == EAGAIN) {
            return Transfer::keepOpen;
        } else if (errno != EINTR) {
            throwSystemError("readToCallback failed", errno);
        }
    }
}

Transfer writeFromCallback(int descriptor, TransferBuffer& buffer, SourceCallback source, void* context) {
    for (;;) {
        if (buffer.pending == 0) {
            buffer.pending = source != nullptr ? source(buffer.bytes, buffer.capacity, context) : 0;
            if (buffer.pending == 0) {
                return Transfer::finished;
            }
        }
        const ssize_t written = ::write(descriptor, buffer.bytes, buffer.pending);
        if (written >= 0) {
            buffer.pending -= static_cast<std::size_t>(written);
            std::memmove(buffer.bytes, buffer.bytes + written, buffer.pending);
        } else if (errno == EAGAIN) {
            return Transfer::keepOpen;
        } else if (errno == EPIPE) {
            return Transfer::finished;
        } else if (errno != EINTR) {
            throwSystemError("writeFromCallback failed", errno);
        }
    }
}

} // namespace quelm
