#include "stream/StreamBuffFill.h"
#include "tests/support/Studio.h"

namespace Tolvar::Testing {
namespace {

/// A loaded wave with a small double buffer and no engine.
struct Fill : Studio {
    Fill(const TestWave& W, std::int32_t SegFrames) {
        PutWave(W);
        HandOver(W);
        MakeBuffer(SegFrames, W.Channels);
    }
    void MakeBuffer(std::int32_t SegFrames, std::int32_t Channels) {
        State.SegFrames = SegFrames;
        State.SegSamples = SegFrames * Channels;
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
        F.Disk.Content["wave"].resize(Whole.size() - static_cast<std::size_t>(Bits / 8));
        std::vector<std::int16_t> Right(3);
        const std::string Alone = FailureOf([&] { F.State.BlkCarrR->QuickBuffGet(1, Right); });
        EXPECT_NE(Alone, "");
        EXPECT_EQ(FailureOf([&] { StreamBuffFill(F.State, 1); }), Alone);
        EXPECT_THAT(F.Segment(1), Each(0));
        F.Disk.Content["wave"] = Whole;
        EXPECT_TRUE(StreamBuffFill(F.State, 1));
        EXPECT_EQ(std::ranges::count(F.Segment(1), 0), 0);
        const int Before = F.Disk.Calls;
        F.State.FillNextPos = 1;
        EXPECT_TRUE(StreamBuffFill(F.State, 1));
        EXPECT_EQ(F.Disk.Calls, Before + 2);
    }
}

TEST(StreamFill, IsSilentWithoutDirectionAndRefusesWhatDoesNotFitItsType) {
    Fill F({.Frames = 400, .BlockFrames = 400}, 400);
    F.State.PlayDirection = 2;
    EXPECT_FALSE(StreamBuffFill(F.State, 1));
    EXPECT_THAT(F.Segment(1), Each(0));
    F.State.PlayDirection = 1;
    F.State.FmtBits = 8;  // which cannot carry its samples
    EXPECT_THROW(StreamBuffFill(F.State, 1), RuntimeFailure);
    F.State.FmtBits = 16;

    // Beyond the end, and the end of a wave that needs every position there is.
    F.MakeBuffer(4, 1);
    for (const std::int32_t Pos : {402, INT32_MAX - 2}) {
        F.State.FillNextPos = Pos;
        EXPECT_FALSE(StreamBuffFill(F.State, 1));
    }
    F.State.WaveNos = INT32_MAX - 1;
    EXPECT_TRUE(StreamBuffFill(F.State, 1));
    EXPECT_EQ(F.State.FillNextPos, INT32_MAX);

    // The milliseconds of a partial segment are counted in 32 bits.
    F.State.FillNextPos = 1;
    F.State.WaveNos = 3'000'000;
    F.MakeBuffer(4'000'000, 1);
    EXPECT_THROW(StreamBuffFill(F.State, 1), RuntimeFailure);

    // A buffer made for another wave: one channel more, or of absurd size.
    for (const auto& [SegFrames, Channels] : {std::pair(4, 2), {-4, 1}}) {
        F.MakeBuffer(SegFrames, Channels);
        EXPECT_THROW(StreamBuffFill(F.State, 1), RuntimeFailure);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
