#include "registry/HandlerRegistry.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

#include "cli/QuelmUtilException.h"

namespace quelm {

namespace {

std::size_t hashOf(std::string_view id) {
    return std::hash<std::string_view>{}(id);
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
    if (!indexed_) {
        makeIndex();
    }
    const auto [first, last] = positions_.equal_range(hashOf(id));
    return std::any_of(first, last, [&](const auto& entry) { return records_[entry.second].id == id; });
}

void HandlerRegistry::append(PhpHandler handler) {
    records_.push_back(std::move(handler));
    if (indexed_) {
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

void HandlerRegistry::makeIndex() {
    positions_.clear();
    positions_.reserve(records_.capacity());
    for (std::size_t position = 0; position < records_.size(); ++position) {
        index(position);
    }
    indexed_ = true;
}

void HandlerRegistry::index(std::size_t position) {
    positions_.emplace(hashOf(records_[position].id), position);
}

void HandlerRegistry::dropIndex() {
    if (indexed_) {
        positions_.clear();
        indexed_ = false;
    }
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
