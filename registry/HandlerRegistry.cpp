#include "registry/HandlerRegistry.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "cli/QuelmUtilException.h"

namespace quelm {

namespace {

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
    if (!index_.hasRoom(1)) {
        makeIndex();
    }
    return index_.contains(id, [this](std::size_t position) { return idAt(position); });
}

void HandlerRegistry::append(PhpHandler handler) {
    records_.push_back(std::move(handler));
    const std::size_t last = records_.size() - 1;
    if (index_.hasRoom(records_.size())) {
        index_.add(idAt(last), last, [this](std::size_t position) { return idAt(position); });
    } else {
        dropIndex();
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
    index_.reset(records_.capacity());
    for (std::size_t position = 0; position < records_.size(); ++position) {
        index_.add(idAt(position), position, [this](std::size_t other) { return idAt(other); });
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
