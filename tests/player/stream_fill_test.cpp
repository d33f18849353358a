#include <limits>

#include "stream/StreamBuffFill.h"
#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Not;

constexpr auto Max = std::numeric_limits<std::int32_t>::max();

/// A loaded wave with a small double buffer and no engine.
struct Fill : Studio {
    Fill(const TestWave& W, std::int32_t SegFrames) {
        PutWave(W);
        HandOver(W);
        State.SegFrames = SegFrames;
        State.SegSamples = SegFrames * W.Channels;
        State.BuffSamples = 2 * State.SegSamples;
    }

    std::vector<int> Segment(std::int32_t Number) {
        const auto* const First = State.StreamBuff.At(Number == 2 ? State.SegSamples + 1 : 1);
        return {First, First + State.SegSamples};
    }
};

// The channels of one file are read together, and yet each is told of as if by itself.
TEST(StreamFill, TellsWhichBytesOfTheRightChannelAreMissing) {
    for (const std::int32_t Bits : {8, 16}) {
        Fill F({.Frames = 3, .Channels = 2, .Bits = Bits}, 3);
        const auto Whole = F.Disk.Content["wave"];
        const auto Bytes = static_cast<std::size_t>(Bits / 8);
        F.Disk.Content["wave"].resize(Whole.size() - Bytes);
        std::vector<std::int16_t> Right(3);
        const std::string Alone = FailureOf([&] { F.State.BlkCarrR->QuickBuffGet(1, Right); });
        EXPECT_NE(Alone, "");
        EXPECT_EQ(FailureOf([&] { StreamBuffFill(F.State, 1); }), Alone);
        EXPECT_THAT(F.Segment(1), Each(0));
        F.Disk.Content["wave"] = Whole;
        EXPECT_TRUE(StreamBuffFill(F.State, 1));
        EXPECT_THAT(F.Segment(1), Not(Contains(0)));
        const int Before = F.Disk.Calls;
        F.State.FillNextPos = 1;
        EXPECT_TRUE(StreamBuffFill(F.State, 1));
        EXPECT_EQ(F.Disk.Calls, Before + 2);
    }
}

TEST(StreamFill, RefusesWhatDoesNotFitItsType) {
    // 16-bit samples that an 8-bit wave cannot carry.
    Fill Loud({.Frames = 400, .BlockFrames = 400}, 400);
    Loud.State.FmtBits = 8;
    EXPECT_THROW(StreamBuffFill(Loud.State, 1), RuntimeFailure);

    // Beyond the end, and the end of a wave that needs every position there is.
    Fill Far({.Frames = 10}, 4);
    for (const std::int32_t Pos : {12, Max - 2}) {
        Far.State.FillNextPos = Pos;
        EXPECT_FALSE(StreamBuffFill(Far.State, 1));
    }
    Far.State.WaveNos = Max - 1;
    EXPECT_TRUE(StreamBuffFill(Far.State, 1));
    EXPECT_EQ(Far.State.FillNextPos, Max);

    // The milliseconds of a partial segment are counted in 32 bits.
    Fill Long({.Frames = 10}, 4'000'000);
    Long.State.WaveNos = 3'000'000;
    EXPECT_THROW(StreamBuffFill(Long.State, 1), RuntimeFailure);

    // A buffer made for another wave: one channel less, or of absurd size.
    Fill Other({.Frames = 10, .Channels = 2}, 4);
    Other.State.BuffSamples = Other.State.SegSamples = 4;
    EXPECT_THROW(StreamBuffFill(Other.State, 1), RuntimeFailure);
    Fill Negative({.Frames = 10}, -4);
    EXPECT_THROW(StreamBuffFill(Negative.State, 1), RuntimeFailure);
}

TEST(StreamFill, SilencesWithoutDirectionAndMovesStorageOnlyWhenTheGeometryChanges) {
    Fill F({.Frames = 10}, 4);
    StreamBuffFill(F.State, 7);  // any number but 2 is segment 1
    EXPECT_THAT(F.Segment(1), ElementsAre(1, 2, 3, 4));
    const auto* const Before = F.State.StreamBuff.At(1);
    F.State.PlayDirection = 2;
    EXPECT_FALSE(StreamBuffFill(F.State, 1));
    EXPECT_THAT(F.Segment(1), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(F.State.FillNextPos, 5);
    EXPECT_EQ(F.State.StreamBuff.At(1), Before);
    F.State.PlayDirection = 1;
    F.State.SegFrames = F.State.SegSamples = 3;
    F.State.BuffSamples = 6;
    EXPECT_TRUE(StreamBuffFill(F.State, 2));
    EXPECT_EQ(F.State.StreamBuff.Count(), 6);
    EXPECT_THAT(F.Segment(1), ElementsAre(0, 0, 0));
    EXPECT_THAT(F.Segment(2), ElementsAre(5, 6, 7));
}

}  // namespace
}  // namespace Tolvar::Testing
