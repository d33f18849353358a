#pragma once

#include <cstdint>
#include <vector>

namespace Tolvar {

/// A set of slot numbers 1..Capacity that knows its least member. One bit a slot and, above it,
/// one bit for every 64 bits below that are not all 0, so that each call costs a handful of words
/// whatever the number of slots.
class SlotSet {
  public:
    /// Makes room for the slots 1..Slots; never shrinks. std::bad_alloc leaves the members as they
    /// were. Every other call stays within the room made and allocates nothing.
    void Reserve(std::int32_t Slots);

    void Insert(std::int32_t Slot) noexcept;
    void Erase(std::int32_t Slot) noexcept;

    /// The least member; 0 when there is none.
    std::int32_t First() const noexcept;

  private:
    std::int64_t Capacity_ = 0;
    std::vector<std::vector<std::uint64_t>>
        Levels_;  // [0] one bit a slot, the last one is one word
};

}  // namespace Tolvar
