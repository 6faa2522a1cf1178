#include "lib/process/lib/Exceptions.h"

#include <cerrno>
#include <cstring>

namespace quelm {

namespace {

int orCurrent(int error) {
    return error != 0 ? error : errno;
}

} // namespace

SystemError::SystemError(const std::string& message, int error)
    : SystemError(message, Number{orCurrent(error)}) {}

SystemError::SystemError(const std::string& message, Number error)
    : std::runtime_error(message + ": " + std::strerror(error.value)), messageLength_(message.size()),
      code_(error.value) {}

[[noreturn]] void throwSystemError(const std::string& message, int error) {
    const int number = orCurrent(error);
    switch (number) {
    case EPERM:
        throw ExSystemError<EPERM>(message);
    case ENOENT:
        throw ExSystemError<ENOENT>(message);
    case EINTR:
        throw ExSystemError<EINTR>(message);
    case ECHILD:
        throw ExSystemError<ECHILD>(message);
    case EAGAIN:
        throw ExSystemError<EAGAIN>(message);
    default:
        throw SystemError(message, number);
    }
}

} // namespace quelm
