// The one function of a target. libFuzzer calls it with inputs that it makes up, Replay.cpp with the seeds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quelm::fuzz {

// `data` may be null when there are no bytes.
inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return size == 0 ? std::string() : std::string(reinterpret_cast<const char*>(data), size);
}

} // namespace quelm::fuzz
