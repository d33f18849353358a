#include "stream/Interleave.h"

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"

namespace Tolvar::Testing {
namespace {

/// A file's samples of both sizes, which fit into 8 bits.
struct Stored {
    std::vector<std::byte> Bytes, Words;

    Stored() {
        for (int K = 0; K < 2 * int{RunWalk::PieceLen} + 40; ++K) {
            const int Sample = (7 + 101 * K) % 256 - 128;
            Bytes.push_back(static_cast<std::byte>(Sample + 128));
            Words.insert(Words.end(),
                         {static_cast<std::byte>(Sample), static_cast<std::byte>(Sample >> 8)});
        }
        Bytes.shrink_to_fit();  // what lies behind is not to be read
        Words.shrink_to_fit();
    }
    /// One that ends so many samples before the file does; silence when its samples have no bits.
    SampleRun Run(SampleLayout Layout, std::int64_t Count, std::int64_t Behind) const {
        if (Layout.Bits == 0) return {.Count = Count};
        const auto& All = Layout.Bits == 8 ? Bytes : Words;
        const std::int64_t Samples = (Count - 1) * Layout.Channels + 1 + Behind;
        return {
            .Count = Count, .From = &*(All.end() - Samples * Layout.Bits / 8), .Layout = Layout};
    }
};

int SampleAt(const SampleRun& Run, std::int64_t K) {
    if (Run.From == nullptr) return 0;
    const auto* const At = Run.From + K * Run.Layout.Channels * Run.Layout.Bits / 8;
    const auto Low = std::to_integer<int>(At[0]);
    return Run.Layout.Bits == 8 ? Low - 128 : std::int16_t(Low | std::to_integer<int>(At[1]) << 8);
}

void ExpectPlaced(SegmentOrder Order, const auto&... Runs) {
    std::vector<std::int16_t> Stream, Expected;
    const std::int64_t Count = std::max({Runs.Count...});
    for (std::int64_t K = 0; K < Count; ++K) {
        for (const int Sample : {SampleAt(Runs, Order.Reverse ? Count - 1 - K : K)...})
            Expected.push_back(std::int16_t(Order.EightBits ? Sample * 256 : Sample));
    }
    Stream.resize(Expected.size());
    Interleave(Runs..., Order, Stream.data());
    ASSERT_EQ(Stream, Expected) << Count << (Order.Reverse ? " reverse" : " forward")
                                << (Order.EightBits ? " of 8 bits" : " of 16 bits");
}

TEST(Interleave, PlacesChannelsOfEveryLayoutInEveryOrderAtTheLengthsAroundAVectors) {
    constexpr SampleLayout Layouts[] = {{1, 8}, {2, 8}, {1, 16}, {2, 16}, {1, 0}};
    const Stored Of;
    for (std::int64_t Count = 1; Count <= RunWalk::PieceLen;
         Count = Count == 50 ? RunWalk::PieceLen : Count + 1) {
        for (const SegmentOrder Order :
             {SegmentOrder{false, false}, {false, true}, {true, false}, {true, true}}) {
            for (const SampleLayout L : Layouts) {
                for (const int Behind : {0, 1, 40}) {  // 1: perhaps of the same frames
                    const SampleRun Left = Of.Run(L, Count, Behind);
                    ExpectPlaced(Order, Left);
                    for (const SampleLayout R : Layouts)
                        ExpectPlaced(Order, Left, Of.Run(R, Count, 0));
                }
            }
        }
    }
}

TEST(Interleave, NamesTheFirstSampleThatHasMoreThanEightBitsTheLeftChannelsFirst) {
    const std::int16_t Frames[] = {1, 200, 2, 3, 150, 4};
    const auto Run = [&](std::size_t Channel, std::int64_t Count) {
        const auto* const From = std::as_bytes(std::span(Frames)).data() + 2 * Channel;
        return SampleRun{.Count = Count, .From = From, .Layout = {2, 16}};
    };
    std::int16_t Stream[6];
    const auto Told = [&](const auto&... Runs) {
        return FailureOf([&] { Interleave(Runs..., {.EightBits = true}, Stream); });
    };
    const std::string Left = Told(Run(0, 3)), Right = Told(Run(1, 3));
    EXPECT_TRUE(Left != "" && Right != "" && Left != Right);
    EXPECT_EQ(Told(Run(0, 3), Run(1, 3)), Left);
    EXPECT_EQ(Told(Run(0, 2), Run(1, 2)), Right);
    EXPECT_EQ(Told(Run(1, 3), Run(0, 3)), Right);
    EXPECT_EQ(Told(SampleRun{.Count = 3}, Run(1, 3)), Right);
}

}  // namespace
}  // namespace Tolvar::Testing
