#include "registry/IdIndex.h"

#include <bit>
#include <functional>

namespace quelm {

void IdIndex::reset(std::size_t count) {
    slots_.assign(std::bit_ceil(2 * count + 2), {});
}

std::size_t IdIndex::hashOf(std::string_view id) {
    return std::hash<std::string_view>{}(id);
}

std::uint32_t IdIndex::upperHalf(std::size_t hash) {
    return static_cast<std::uint32_t>(std::uint64_t{hash} >> 32);
}

} // namespace quelm
