#include "store/SlotSet.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace Tolvar {

namespace {

constexpr std::int64_t WordBits = 64;

std::uint64_t BitOf(std::size_t Index) {
    return std::uint64_t{1} << (Index % WordBits);
}

}  // namespace

void SlotSet::Reserve(std::int32_t Slots) {
    if (Slots <= Capacity_) return;
    const std::int64_t Wanted = std::max<std::int64_t>({Slots, 2 * Capacity_, WordBits});
    auto Grown = Levels_;
    auto Bits = static_cast<std::size_t>(Wanted);
    for (std::size_t Level = 0; Level == 0 || Bits > 1; ++Level) {
        if (Level == Grown.size()) {
            Grown.emplace_back();
            // A new top level starts with what the level below it, once one word, held.
            if (Level > 0 && Grown[Level - 1].front() != 0) Grown[Level].push_back(1);
        }
        Bits = (Bits + WordBits - 1) / WordBits;
        Grown[Level].resize(Bits);
    }
    Levels_.swap(Grown);
    Capacity_ = Wanted;
}

void SlotSet::Insert(std::int32_t Slot) noexcept {
    auto Index = static_cast<std::size_t>(Slot) - 1;
    for (auto& Words : Levels_) {
        std::uint64_t& Word = Words[Index / WordBits];
        const bool WasEmpty = Word == 0;
        Word |= BitOf(Index);
        if (!WasEmpty) return;
        Index /= WordBits;
    }
}

void SlotSet::Erase(std::int32_t Slot) noexcept {
    auto Index = static_cast<std::size_t>(Slot) - 1;
    for (auto& Words : Levels_) {
        std::uint64_t& Word = Words[Index / WordBits];
        Word &= ~BitOf(Index);
        if (Word != 0) return;
        Index /= WordBits;
    }
}

std::int32_t SlotSet::First() const noexcept {
    if (Levels_.empty() || Levels_.back().front() == 0) return 0;
    std::size_t Index = 0;
    for (auto Words = Levels_.rbegin(); Words != Levels_.rend(); ++Words) {
        Index = Index * WordBits + static_cast<std::size_t>(std::countr_zero((*Words)[Index]));
    }
    return static_cast<std::int32_t>(Index + 1);
}

}  // namespace Tolvar
