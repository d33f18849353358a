#include "stream/Interleave.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/RuntimeFailure.h"

namespace Tolvar::Testing {
namespace {

/// Samples that fit into 8 bits and repeat late, as the bytes of a file, and none more.
struct Stored {
    Stored(std::int32_t Bits, std::int64_t Count, int First) {
        for (std::int64_t K = 0; K < Count; ++K) {
            Values.push_back(static_cast<std::int16_t>((First + 101 * K) % 256 - 128));
            Put(Bits, Values.back());
        }
    }
    void Put(std::int32_t Bits, std::int16_t Sample) {
        Bytes.push_back(static_cast<std::byte>(Bits == 8 ? Sample + 128 : Sample));
        if (Bits == 16) Bytes.push_back(static_cast<std::byte>(Sample >> 8));
    }
    std::vector<std::int16_t> Values;
    std::vector<std::byte> Bytes;
};

/// What a channel has at each frame, whatever lies between.
std::vector<std::int16_t> Every(std::int32_t Step, const std::vector<std::int16_t>& Values) {
    std::vector<std::int16_t> Found;
    for (std::size_t K = 0; K < Values.size(); K += static_cast<std::size_t>(Step))
        Found.push_back(Values[K]);
    return Found;
}

std::vector<std::int16_t> Played(const std::vector<std::vector<std::int16_t>>& Channels,
                                 SegmentOrder Order) {
    std::vector<std::int16_t> Stream;
    const std::size_t Count = Channels[0].size();
    for (std::size_t K = 0; K < Count; ++K) {
        for (const auto& Channel : Channels) {
            const int Sample = Channel[Order.Reverse ? Count - 1 - K : K];
            Stream.push_back(static_cast<std::int16_t>(Order.EightBits ? Sample * 256 : Sample));
        }
    }
    return Stream;
}

constexpr SampleLayout Layouts[] = {{1, 8}, {2, 8}, {1, 16}, {2, 16}};
constexpr SegmentOrder Orders[] = {{false, false}, {false, true}, {true, false}, {true, true}};

/// Calls Try with each order and each length around those that vectors have.
template <class Trial>
void InEveryOrder(Trial&& Try) {
    for (const SegmentOrder Order : Orders) {
        for (std::int64_t Count = 1; Count <= 50; ++Count) {
            SCOPED_TRACE(std::to_string(Count) + (Order.Reverse ? " reverse" : " forward") +
                         (Order.EightBits ? " of 8 bits" : " of 16 bits"));
            Try(Order, Count);
        }
        Try(Order, RunWalk::PieceLen);
    }
}

TEST(Interleave, PlacesOneChannelOfEveryLayout) {
    InEveryOrder([](SegmentOrder Order, std::int64_t Count) {
        std::vector<std::int16_t> Stream(static_cast<std::size_t>(Count));
        for (const SampleLayout Layout : Layouts) {
            const Stored Of(Layout.Bits, (Count - 1) * Layout.Channels + 1, 7);
            Interleave({.Count = Count, .From = Of.Bytes.data(), .Layout = Layout}, Order,
                       Stream.data());
            EXPECT_EQ(Stream, Played({Every(Layout.Channels, Of.Values)}, Order));
        }
        Interleave({.Count = Count}, Order, Stream.data());
        EXPECT_EQ(Stream, std::vector<std::int16_t>(Stream.size()));
    });
}

TEST(Interleave, PlacesTwoChannelsOfAnyLayouts) {
    InEveryOrder([](SegmentOrder Order, std::int64_t Count) {
        std::vector<std::int16_t> Stream(static_cast<std::size_t>(2 * Count));
        for (const SampleLayout L : Layouts) {
            const Stored Left(L.Bits, (Count - 1) * L.Channels + 1, 7);
            const SampleRun LeftRun{.Count = Count, .From = Left.Bytes.data(), .Layout = L};
            const auto Heard = Every(L.Channels, Left.Values);
            for (const SampleLayout R : Layouts) {
                const Stored Right(R.Bits, (Count - 1) * R.Channels + 1, 40);
                Interleave(LeftRun, {.Count = Count, .From = Right.Bytes.data(), .Layout = R},
                           Order, Stream.data());
                EXPECT_EQ(Stream, Played({Heard, Every(R.Channels, Right.Values)}, Order));
            }
            Interleave(LeftRun, {.Count = Count}, Order, Stream.data());
            EXPECT_EQ(Stream, Played({Heard, std::vector<std::int16_t>(Heard.size())}, Order));
        }
    });
}

TEST(Interleave, PlacesTheFramesOfOneFile) {
    InEveryOrder([](SegmentOrder Order, std::int64_t Count) {
        std::vector<std::int16_t> Stream(static_cast<std::size_t>(2 * Count));
        for (const std::int32_t Bits : {8, 16}) {
            const Stored Frames(Bits, 2 * Count, 7);
            const SampleRun Left{.Count = Count, .From = Frames.Bytes.data(), .Layout = {2, Bits}};
            SampleRun Right = Left;
            Right.From += Bits / 8;
            const std::vector<std::int16_t> Behind(Frames.Values.begin() + 1, Frames.Values.end());
            Interleave(Left, Right, Order, Stream.data());
            EXPECT_EQ(Stream, Played({Every(2, Frames.Values), Every(2, Behind)}, Order));
            Interleave(Right, Right, Order, Stream.data());  // one of them on both sides
            EXPECT_EQ(Stream, Played({Every(2, Behind), Every(2, Behind)}, Order));
        }
    });
}

TEST(Interleave, NamesTheFirstSampleThatHasMoreThanEightBitsTheLeftChannelsFirst) {
    Stored Frames(16, 0, 0);
    for (const std::int16_t Sample : std::initializer_list<std::int16_t>{1, 200, 2, 3, 150, 4})
        Frames.Put(16, Sample);
    const auto Run = [&](int Channel, std::int64_t Count) {
        return SampleRun{
            .Count = Count, .From = Frames.Bytes.data() + 2 * Channel, .Layout = {2, 16}};
    };
    std::int16_t Stream[6];
    const auto Told = [&](auto&&... Runs) -> std::string {
        try {
            Interleave(Runs..., {.EightBits = true}, Stream);
        } catch (const RuntimeFailure& Failure) {
            return Failure.what();
        }
        return "";
    };
    const std::string Left = Told(Run(0, 3));
    const std::string Right = Told(Run(1, 3));
    EXPECT_NE(Left, "");
    EXPECT_NE(Right, "");
    EXPECT_NE(Left, Right);
    EXPECT_EQ(Told(Run(0, 3), Run(1, 3)), Left);
    EXPECT_EQ(Told(Run(0, 2), Run(1, 2)), Right);
    EXPECT_EQ(Told(Run(1, 3), Run(0, 3)), Right);
    EXPECT_EQ(Told(SampleRun{.Count = 3}, Run(1, 3)), Right);
}

}  // namespace
}  // namespace Tolvar::Testing
