#include "waveplay/terminal/Peaks.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Tolvar::Testing {
namespace {

// A stereo wave whose channels are found apart, with one frame that sticks out.
struct Tape {
    std::int32_t Length;
    std::int32_t Odd = -1;  // the frame that sticks out
    std::int64_t FramesRead = 0;
    std::int32_t FailAt = -1;

    void Read(std::int32_t From, std::span<std::int16_t> Into) {
        const auto Count = static_cast<std::int32_t>(Into.size() / 2);
        EXPECT_GE(From, 0);
        EXPECT_LE(From, Length - Count);
        if (FailAt >= From && FailAt < From + Count) throw std::runtime_error("torn");
        FramesRead += Count;
        for (std::size_t At = 0; At < Into.size(); At += 2) {
            Into[At] = From++ == Odd ? 30000 : 100;
            Into[At + 1] = static_cast<std::int16_t>(-Into[At] / 2);
        }
    }
    Peaks Overview{Length, 2,
                   [this](std::int32_t From, std::span<std::int16_t> Into) { Read(From, Into); }};
};

TEST(Peaks, FindsTheOneFrameThatSticksOut) {
    for (const std::int32_t Length : {1, 2, 79, 2047, 2049, 100'000, 3'000'000, 16'777'216}) {
        for (const std::int32_t Odd : {0, Length / 3, Length - 1}) {
            Tape Whole{Length, Odd};
            while (Whole.Overview.Work(1000)) {
            }
            EXPECT_EQ(Whole.FramesRead, Length) << "each frame once";
            int Columns = 0;
            for (int Column = 0; Column < 80; ++Column) {
                const Peak At = Whole.Overview.Column(Column, 80);
                EXPECT_GE(At.Greatest, 100);
                EXPECT_EQ(At.Least, -At.Greatest / 2);
                if (At.Greatest == 30000) ++Columns;
            }
            EXPECT_GE(Columns, 1) << Length << " " << Odd;
            EXPECT_TRUE(Length < 80 || Columns == 1) << Length << " " << Odd;
        }
    }
}

TEST(Peaks, AreRoughAtOnceBoundedForHoursAndEndAtAReadThatFails) {
    Tape Whole{2'147'483'647};
    EXPECT_TRUE(Whole.Overview.Work(2048));
    for (int Column = 0; Column < 140; ++Column)
        EXPECT_EQ(Whole.Overview.Column(Column, 140).Greatest, 100);
    EXPECT_LE(Whole.FramesRead, 2048 * 512);
    while (Whole.Overview.Work(1000)) {
    }
    EXPECT_LE(Whole.FramesRead, 16'777'216);

    Tape Torn{.Length = 4096, .FailAt = 2000};
    EXPECT_FALSE(Torn.Overview.Work(5000));
    EXPECT_EQ(Torn.Overview.Failure(), "torn");
    EXPECT_EQ(Torn.Overview.Column(0, 80).Greatest, 100);
    EXPECT_EQ(Torn.Overview.Column(79, 80).Greatest, 0);
    EXPECT_FALSE(Torn.Overview.Work(5000));
}

}  // namespace
}  // namespace Tolvar::Testing
