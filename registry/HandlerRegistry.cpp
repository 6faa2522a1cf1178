#include "registry/HandlerRegistry.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <stdexcept>
#include <utility>

#include "cli/QuelmUtilException.h"

namespace quelm {

namespace {

std::size_t hashOf(std::string_view id) {
    return std::hash<std::string_view>{}(id);
}

std::uint32_t upperHalf(std::size_t hash) {
    return static_cast<std::uint32_t>(std::uint64_t{hash} >> 32);
}

// size() when no record has the id.
std::size_t positionOf(const HandlerRegistry& registry, std::string_view id) {
    const auto found = std::find_if(registry.begin(), registry.end(),
                                    [id](const PhpHandler& handler) { return handler.id == id; });
    return static_cast<std::size_t>(found - registry.begin());
}

} // namespace

PhpHandler& HandlerRegistry::operator[](std::size_t position) {
    dropIndex();
    return records_[position];
}

HandlerRegistry::iterator HandlerRegistry::begin() {
    dropIndex();
    return records_.begin();
}

HandlerRegistry::iterator HandlerRegistry::end() {
    dropIndex();
    return records_.end();
}

bool HandlerRegistry::contains(std::string_view id) {
    if (slots_.empty()) {
        makeIndex();
    }
    const std::size_t hash = hashOf(id);
    for (std::size_t place = firstPlace(hash); slots_[place].taken(); place = nextPlace(place)) {
        if (slots_[place].hash == upperHalf(hash) && records_[slots_[place].position()].id == id) {
            return true;
        }
    }
    return false;
}

void HandlerRegistry::append(PhpHandler handler) {
    records_.push_back(std::move(handler));
    if (2 * records_.size() > slots_.size()) {
        dropIndex();
    } else {
        index(records_.size() - 1);
    }
}

void HandlerRegistry::erase(std::size_t position) {
    dropIndex();
    records_.erase(records_.begin() + static_cast<std::ptrdiff_t>(position));
}

void HandlerRegistry::clear() {
    dropIndex();
    records_.clear();
}

// As large as the records can become without a new allocation of their own.
void HandlerRegistry::makeIndex() {
    slots_.assign(std::bit_ceil(2 * records_.capacity() + 2), {});
    for (std::size_t position = 0; position < records_.size(); ++position) {
        index(position);
    }
}

void HandlerRegistry::index(std::size_t position) {
    const std::size_t hash = hashOf(records_[position].id);
    std::size_t place = firstPlace(hash);
    while (slots_[place].taken()) {
        place = nextPlace(place);
    }
    slots_[place] = {upperHalf(hash), static_cast<std::uint32_t>(position + 1)};
}

void HandlerRegistry::dropIndex() {
    slots_.clear();
}

PhpHandler* find(HandlerRegistry& registry, std::string_view id) {
    const std::size_t position = positionOf(registry, id);
    return position < registry.size() ? &registry[position] : nullptr;
}

void add(HandlerRegistry& registry, const PhpHandler& handler) {
    // Plain std::runtime_error on purpose: a caller that forgot the id is a fault of the program.
    if (handler.id.empty()) {
        throw std::runtime_error("Undefined php handler id");
    }
    if (registry.contains(handler.id)) {
        throw QuelmUtilException("Handler with id = `" + handler.id + "' already exists");
    }
    registry.append(handler);
}

void remove(HandlerRegistry& registry, const std::string& id) {
    const std::size_t position = positionOf(registry, id);
    if (position == registry.size()) {
        throw QuelmUtilException("Handler with id = `" + id + "' not found");
    }
    registry.erase(position);
}

void erase(HandlerRegistry& registry, std::size_t position) {
    registry.erase(position);
}

} // namespace quelm
