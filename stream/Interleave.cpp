#include "stream/Interleave.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "platform/Checked.h"

namespace Tolvar {
namespace {

// Plain loops with everything that varies fixed at compile time, so that the compiler makes vector
// code of each.

template <bool EightBits>
std::int16_t Scaled(std::int16_t Sample) {
    return EightBits ? static_cast<std::int16_t>(Sample * 256) : Sample;
}

template <bool Reverse, bool EightBits>
void PlaceOne(std::span<const std::int16_t> Channel, std::int16_t* Stream) {
    const std::size_t Count = Channel.size();
    const std::int16_t* const From = Channel.data();
    for (std::size_t K = 0; K < Count; ++K) {
        Stream[K] = Scaled<EightBits>(From[Reverse ? Count - 1 - K : K]);
    }
}

template <bool Reverse, bool EightBits>
void PlaceBoth(std::span<const std::int16_t> Left, std::span<const std::int16_t> Right,
               std::int16_t* Stream) {
    const std::size_t Count = Left.size();
    const std::int16_t* const L = Left.data();
    const std::int16_t* const R = Right.data();
    for (std::size_t K = 0; K < Count; ++K) {
        const std::size_t From = Reverse ? Count - 1 - K : K;
        Stream[2 * K] = Scaled<EightBits>(L[From]);
        Stream[2 * K + 1] = Scaled<EightBits>(R[From]);
    }
}

// Reversed, eight frames at a time: the channels are read forward, which is what the processor
// fetches ahead for. The vectors are the compiler's own, on whatever machine.
using Samples [[gnu::vector_size(16)]] = std::int16_t;
using Pairs [[gnu::vector_size(16)]] = std::uint32_t;
constexpr std::size_t Step = 8;

template <bool EightBits>
Samples EightFrom(const std::int16_t* From) {
    Samples Eight;
    std::memcpy(&Eight, From, sizeof Eight);
    return EightBits ? Eight * 256 : Eight;
}

Pairs Reversed(Samples Eight) {
    Pairs Four;
    std::memcpy(&Four, &Eight, sizeof Four);
    return __builtin_shufflevector(Four, Four, 3, 2, 1, 0);
}

template <bool EightBits>
void PlaceOneReversed(std::span<const std::int16_t> Channel, std::int16_t* Stream) {
    std::size_t At = 0;
    std::int16_t* End = Stream + Channel.size();
    for (; At + Step <= Channel.size(); At += Step) {
        const Pairs Four = Reversed(EightFrom<EightBits>(&Channel[At]));
        const Pairs Swapped = Four << 16U | Four >> 16U;
        End -= Step;
        std::memcpy(End, &Swapped, sizeof Swapped);
    }
    PlaceOne<true, EightBits>(Channel.subspan(At), Stream);
}

template <bool EightBits>
void PlaceBothReversed(std::span<const std::int16_t> Left, std::span<const std::int16_t> Right,
                       std::int16_t* Stream) {
    std::size_t At = 0;
    std::int16_t* End = Stream + 2 * Left.size();
    for (; At + Step <= Left.size(); At += Step) {
        const Samples L = EightFrom<EightBits>(&Left[At]);
        const Samples R = EightFrom<EightBits>(&Right[At]);
        const Pairs Late = Reversed(__builtin_shufflevector(L, R, 0, 8, 1, 9, 2, 10, 3, 11));
        const Pairs Early = Reversed(__builtin_shufflevector(L, R, 4, 12, 5, 13, 6, 14, 7, 15));
        End -= 2 * Step;
        std::memcpy(End, &Early, sizeof Early);
        std::memcpy(End + Step, &Late, sizeof Late);
    }
    PlaceBoth<true, EightBits>(Left.subspan(At), Right.subspan(At), Stream);
}

void CheckEightBits(std::span<const std::int16_t> Channel) {
    std::uint16_t Bits = 0;  // that any sample has when it is counted from -128; 16 to be quick
    for (const std::int16_t Sample : Channel)
        Bits = static_cast<std::uint16_t>(Bits | static_cast<std::uint16_t>(Sample + 128));
    if (Bits < 256) return;
    for (const std::int16_t Sample : Channel)
        static_cast<void>(Checked<std::int16_t>(std::int64_t{Sample} * 256));
}

}  // namespace

void Interleave(std::span<const std::int16_t> Left, SegmentOrder Order, std::int16_t* Stream) {
    if (Order.EightBits) {
        CheckEightBits(Left);
        Order.Reverse ? PlaceOneReversed<true>(Left, Stream) : PlaceOne<false, true>(Left, Stream);
    } else {
        Order.Reverse ? PlaceOneReversed<false>(Left, Stream)
                      : PlaceOne<false, false>(Left, Stream);
    }
}

void Interleave(std::span<const std::int16_t> Left, std::span<const std::int16_t> Right,
                SegmentOrder Order, std::int16_t* Stream) {
    if (Order.EightBits) {
        CheckEightBits(Left);
        CheckEightBits(Right);
        Order.Reverse ? PlaceBothReversed<true>(Left, Right, Stream)
                      : PlaceBoth<false, true>(Left, Right, Stream);
    } else {
        Order.Reverse ? PlaceBothReversed<false>(Left, Right, Stream)
                      : PlaceBoth<false, false>(Left, Right, Stream);
    }
}

}  // namespace Tolvar
