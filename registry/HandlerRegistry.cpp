#include "registry/HandlerRegistry.h"

#include <algorithm>
#include <stdexcept>

#include "base/QuelmUtilException.h"

namespace quelm {

void HandlerRegistry::keepIf(const std::function<bool(PhpHandler&)>& keep) {
    std::vector<PhpHandler> kept;
    for (PhpHandler& record : std::exchange(records_, {})) {
        if (keep(record)) {
            kept.push_back(std::move(record));
        }
    }
    records_ = std::move(kept);
}

namespace {

HandlerRegistry::const_iterator locate(const HandlerRegistry& registry, std::string_view id) {
    return std::find_if(registry.begin(), registry.end(),
                        [id](const PhpHandler& handler) { return handler.id == id; });
}

} // namespace

const PhpHandler* find(const HandlerRegistry& registry, std::string_view id) {
    const auto found = locate(registry, id);
    return found != registry.end() ? &*found : nullptr;
}

PhpHandler* find(HandlerRegistry& registry, std::string_view id) {
    return const_cast<PhpHandler*>(find(std::as_const(registry), id));
}

void add(HandlerRegistry& registry, const PhpHandler& handler) {
    // Plain std::runtime_error on purpose: a caller that forgot the id is a fault of the program.
    if (handler.id.empty()) {
        throw std::runtime_error("Undefined php handler id");
    }
    if (find(registry, handler.id) != nullptr) {
        throw QuelmUtilException("Handler with id = `" + handler.id + "' already exists");
    }
    registry.append(handler);
}

void remove(HandlerRegistry& registry, const std::string& id) {
    const auto found = locate(registry, id);
    if (found == registry.end()) {
        throw QuelmUtilException("Handler with id = `" + id + "' not found");
    }
    erase(registry, static_cast<std::size_t>(found - registry.begin()));
}

void erase(HandlerRegistry& registry, std::size_t position) {
    registry.erase(position);
}

} // namespace quelm
