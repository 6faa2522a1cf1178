// The registered handlers in the order of the registry file, no two with the same id. Look-ups are linear: a
// host has dozens of handlers.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registry/PhpHandler.h"

namespace quelm {

class HandlerRegistry {
public:
    using const_iterator = std::vector<PhpHandler>::const_iterator;

    std::size_t size() const { return records_.size(); }
    bool empty() const { return records_.empty(); }
    const PhpHandler& operator[](std::size_t position) const { return records_[position]; }
    const_iterator begin() const { return records_.begin(); }
    const_iterator end() const { return records_.end(); }

    // Calls `keep` with each record, first to last, and removes those for which it returns false. `keep` may
    // change a record, but not its id. When it throws, the registry is empty.
    void keepIf(const std::function<bool(PhpHandler&)>& keep);

    // Appends without looking for a record with the same id; see add().
    void append(PhpHandler handler) { records_.push_back(std::move(handler)); }
    void reserve(std::size_t count) { records_.reserve(count); }
    void erase(std::size_t position) { records_.erase(begin() + static_cast<std::ptrdiff_t>(position)); }
    void clear() { records_.clear(); }

private:
    std::vector<PhpHandler> records_;
};

// The first record with the id, or null. The pointer is valid while nothing is added or removed. The id of a
// record must not be changed.
const PhpHandler* find(const HandlerRegistry& registry, std::string_view id);
PhpHandler* find(HandlerRegistry& registry, std::string_view id);

// Appends a copy. Throws std::runtime_error when the id is empty, QuelmUtilException when it is taken.
void add(HandlerRegistry& registry, const PhpHandler& handler);

// Removes the record with the id; later records move down. Throws QuelmUtilException when there is none.
void remove(HandlerRegistry& registry, const std::string& id);

// Removes the record at `position`, which is below size(); later records move down.
void erase(HandlerRegistry& registry, std::size_t position);

} // namespace quelm
