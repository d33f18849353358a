#include "stream/Interleave.h"

#include <algorithm>
#include <cstddef>

#include "platform/Checked.h"

namespace Tolvar {
namespace {

/// Places one channel at every Channels-th sample from Stream on. Plain loops with everything that
/// varies fixed at compile time, so that the compiler makes vector code of each.
template <std::size_t Channels, bool Reverse, bool EightBits>
void Place(std::span<const std::int16_t> Channel, std::int16_t* Stream) {
    const std::size_t Count = Channel.size();
    const std::int16_t* const From = Channel.data();
    for (std::size_t K = 0; K < Count; ++K) {
        const std::int16_t Sample = From[Reverse ? Count - 1 - K : K];
        Stream[K * Channels] = EightBits ? static_cast<std::int16_t>(Sample * 256) : Sample;
    }
}

template <bool Reverse>
void PlaceBoth(std::span<const std::int16_t> Left, std::span<const std::int16_t> Right,
               std::int16_t* Stream) {
    const std::size_t Count = Left.size();
    const std::int16_t* const L = Left.data();
    const std::int16_t* const R = Right.data();
    for (std::size_t K = 0; K < Count; ++K) {
        const std::size_t From = Reverse ? Count - 1 - K : K;
        Stream[2 * K] = L[From];
        Stream[2 * K + 1] = R[From];
    }
}

template <std::size_t Channels>
void PlaceOne(std::span<const std::int16_t> Channel, SegmentOrder Order, std::int16_t* Stream) {
    if (Order.Reverse) {
        Order.EightBits ? Place<Channels, true, true>(Channel, Stream)
                        : Place<Channels, true, false>(Channel, Stream);
    } else {
        Order.EightBits ? Place<Channels, false, true>(Channel, Stream)
                        : Place<Channels, false, false>(Channel, Stream);
    }
}

void CheckEightBits(std::span<const std::int16_t> Channel) {
    if (Channel.empty()) return;
    const auto [Least, Most] = std::ranges::minmax(Channel);
    static_cast<void>(Checked<std::int16_t>(std::int64_t{Least} * 256));
    static_cast<void>(Checked<std::int16_t>(std::int64_t{Most} * 256));
}

}  // namespace

void Interleave(std::span<const std::int16_t> Left, SegmentOrder Order, std::int16_t* Stream) {
    if (Order.EightBits) CheckEightBits(Left);
    PlaceOne<1>(Left, Order, Stream);
}

void Interleave(std::span<const std::int16_t> Left, std::span<const std::int16_t> Right,
                SegmentOrder Order, std::int16_t* Stream) {
    if (Order.EightBits) {
        CheckEightBits(Left);
        CheckEightBits(Right);
        PlaceOne<2>(Left, Order, Stream);
        PlaceOne<2>(Right, Order, Stream + 1);
    } else {
        Order.Reverse ? PlaceBoth<true>(Left, Right, Stream)
                      : PlaceBoth<false>(Left, Right, Stream);
    }
}

}  // namespace Tolvar
