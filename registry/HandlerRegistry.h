// The registered handlers in the order of the registry file, no two with the same id.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registry/IdIndex.h"
#include "registry/PhpHandler.h"

namespace quelm {

class HandlerRegistry {
public:
    using iterator = std::vector<PhpHandler>::iterator;
    using const_iterator = std::vector<PhpHandler>::const_iterator;

    std::size_t size() const { return records_.size(); }
    bool empty() const { return records_.empty(); }
    const PhpHandler& operator[](std::size_t position) const { return records_[position]; }
    const_iterator begin() const { return records_.begin(); }
    const_iterator end() const { return records_.end(); }

    // Whoever can change a record can change its id: these drop the index, and the next contains() makes a
    // new one. Do not call contains() or append() while such access is still in use.
    PhpHandler& operator[](std::size_t position);
    iterator begin();
    iterator end();

    // True when a record has this id. Does not search the records one by one.
    bool contains(std::string_view id);

    // Appends without looking for a record with the same id; see add().
    void append(PhpHandler handler);

    void reserve(std::size_t count) { records_.reserve(count); }
    void erase(std::size_t position);
    void clear();

    // Calls `keep` with each record, first to last, and removes those for which it answers false; the others
    // stay in their order. `keep` may change the record. One pass: the cost does not grow with the number of
    // records removed. When `keep` throws, the record at hand and all behind it stay.
    template <class Keep>
    void keepIf(Keep keep);

private:
    std::string_view idAt(std::size_t position) const { return records_[position].id; }
    void makeIndex();
    void dropIndex() { index_.clear(); }

    std::vector<PhpHandler> records_;
    IdIndex index_; // of every record, or of none
};

template <class Keep>
void HandlerRegistry::keepIf(Keep keep) {
    dropIndex();
    auto place = records_.begin();
    auto record = records_.begin();
    const auto closeGap = [&] { records_.erase(place, record); };
    try {
        for (; record != records_.end(); ++record) {
            if (!keep(*record)) {
                continue;
            }
            if (place != record) {
                *place = std::move(*record);
            }
            ++place;
        }
    } catch (...) {
        closeGap();
        throw;
    }
    closeGap();
}

// The first record with the id, or null. The pointer stays valid while nothing is added or removed.
PhpHandler* find(HandlerRegistry& registry, std::string_view id);

// Appends a copy. Throws std::runtime_error when the id is empty, QuelmUtilException when it is taken.
void add(HandlerRegistry& registry, const PhpHandler& handler);

// Removes the record with the id; later records move down. Throws QuelmUtilException when there is none.
void remove(HandlerRegistry& registry, const std::string& id);

// Removes the record at `position`, which is below size(); later records move down.
void erase(HandlerRegistry& registry, std::size_t position);

} // namespace quelm
