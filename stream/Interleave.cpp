#include "stream/Interleave.h"

#include <algorithm>
#include <cstddef>

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

void CheckEightBits(std::span<const std::int16_t> Channel) {
    unsigned Beyond = 0;  // what any sample has above 8 bits when it is counted from -128
    for (const std::int16_t Sample : Channel)
        Beyond |= static_cast<std::uint16_t>(Sample + 128) & 0xFF00U;
    if (Beyond == 0) return;
    for (const std::int16_t Sample : Channel)
        static_cast<void>(Checked<std::int16_t>(std::int64_t{Sample} * 256));
}

}  // namespace

void Interleave(std::span<const std::int16_t> Left, SegmentOrder Order, std::int16_t* Stream) {
    if (Order.EightBits) {
        CheckEightBits(Left);
        Order.Reverse ? PlaceOne<true, true>(Left, Stream) : PlaceOne<false, true>(Left, Stream);
    } else {
        Order.Reverse ? PlaceOne<true, false>(Left, Stream) : PlaceOne<false, false>(Left, Stream);
    }
}

void Interleave(std::span<const std::int16_t> Left, std::span<const std::int16_t> Right,
                SegmentOrder Order, std::int16_t* Stream) {
    if (Order.EightBits) {
        CheckEightBits(Left);
        CheckEightBits(Right);
        Order.Reverse ? PlaceBoth<true, true>(Left, Right, Stream)
                      : PlaceBoth<false, true>(Left, Right, Stream);
    } else {
        Order.Reverse ? PlaceBoth<true, false>(Left, Right, Stream)
                      : PlaceBoth<false, false>(Left, Right, Stream);
    }
}

}  // namespace Tolvar
