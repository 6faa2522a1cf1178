// Finds records by their id without looking at one after the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace quelm {

// A hash table with open addressing: a power of two of slots of which at most half are taken. Probing
// neighbours is what makes a large registry load fast. The ids stay with their records; `idAt(position)`
// tells the one at a position that was added.
class IdIndex {
public:
    // Forgets everything and makes room for `count` ids.
    void reset(std::size_t count);

    // Room for no id, which is how an index begins.
    void clear() { slots_.clear(); }

    bool hasRoom(std::size_t count) const { return 2 * count <= slots_.size(); }

    // Wants room for one id at least.
    template <class IdAt>
    bool contains(std::string_view id, IdAt idAt) const {
        return slots_[placeOf(id, hashOf(id), idAt)].taken();
    }

    // Notes the position of an id for which there is room, unless the id is there already. True when it was
    // not.
    template <class IdAt>
    bool add(std::string_view id, std::size_t position, IdAt idAt) {
        const std::size_t hash = hashOf(id);
        Slot& slot = slots_[placeOf(id, hash, idAt)];
        if (slot.taken()) {
            return false;
        }
        slot = {upperHalf(hash), static_cast<std::uint32_t>(position + 1)};
        return true;
    }

private:
    // More than 2^32 - 2 records no memory can hold.
    struct Slot {
        std::uint32_t hash = 0;   // the upper half of the id's
        std::uint32_t number = 0; // the record's position + 1, 0: free

        bool taken() const { return number != 0; }
        std::size_t position() const { return number - 1; }
    };

    static std::size_t hashOf(std::string_view id);
    static std::uint32_t upperHalf(std::size_t hash);

    // The place of the id, or the free one where it would be.
    template <class IdAt>
    std::size_t placeOf(std::string_view id, std::size_t hash, IdAt idAt) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t place = hash & mask;
        while (slots_[place].taken() &&
               (slots_[place].hash != upperHalf(hash) || idAt(slots_[place].position()) != id)) {
            place = (place + 1) & mask;
        }
        return place;
    }

    std::vector<Slot> slots_;
};

} // namespace quelm
