#include "waveplay/terminal/Screen.h"

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "TinyTerminal.h"
#include "waveplay/terminal/Painter.h"
#include "waveplay/terminal/TerminalLook.h"

namespace Tolvar::Testing {
namespace {

// 40 s at 100 Hz: silence, a loud half wave, a quiet one, full scale.
Peaks Overview() {
    Peaks Found(4000, 1, [](std::int32_t From, std::span<std::int16_t> Into) {
        constexpr std::int16_t Levels[] = {0, 16384, 4096, 32767};
        for (std::int16_t& Each : Into) {
            const std::int16_t Level = Levels[From / 1000];
            Each = static_cast<std::int16_t>(From++ % 2 == 0 ? Level : -Level);
        }
    });
    while (Found.Work(100)) {
    }
    return Found;
}

using namespace testing;

struct ScreenTest : Test {
    Peaks Peaked = Overview();
    View Shown;

    ScreenTest() {
        Shown.Unicode = false;
        Shown.Name = "song.wav";
        Shown.Engine = "waveOut";
        Shown.Device = "null";
        Shown.Format = "100 Hz";
        Shown.Wave = {4000, 100, 1, false, 1.0, 1.5, true};
        Shown.State = Transport::Playing;
        Shown.Here = 1234;
        Shown.LastReport = "Playing";
        Shown.Overview = &Peaked;
    }
    Grid Show(int Width, int Height) {
        Shown.Width = Width;
        Shown.Height = Height;
        return Screen(Shown);
    }
};

TEST_F(ScreenTest, ShowsEverythingInItsPlace) {
    EXPECT_EQ(Text(Show(40, 11)),
              " song.wav               waveOut -> null\n"
              "\n"
              "            !                 ||||||||||\n"
              "..........##!|||||||..........||||||||||\n"
              "          ##!|||||||''''''''''||||||||||\n"
              "            !                 ||||||||||\n"
              "'0:00          '0:15          '0:30\n"
              " > 0:00:12.3 / 0:00:40.0   forward  30%\n"
              " tempo > 1.00x  < 1.50x   loop off\n"
              " Playing\n"
              " space pause  q quit  ? keys  u turn\n");
    Shown.State = Transport::Ended;
    Shown.Note = {"no such file", true};
    EXPECT_THAT(Text(Show(60, 6)),
                AllOf(HasSubstr("\n # 0:00:12.3 / 0:00:40.0   e"), HasSubstr("\n no such file\n")));
}

TEST_F(ScreenTest, DrawsInEighthsAndMarksWhatWasPlayed) {
    Shown.Unicode = true;
    Shown.Wave.Direction = -1;
    Shown.Here = 2000;
    const Grid On = Show(40, 5);
    EXPECT_EQ(On.RowText(0), "▁▁▁▁▁▁▁▁▁▁▄▄▄▄▄▄▄▄▄▄┃▁▁▁▁▁▁▁▁▁██████████");
    EXPECT_EQ(On.RowText(1), "          ▄▄▄▄▄▄▄▄▄▄┃▇▇▇▇▇▇▇▇▇██████████");
    EXPECT_EQ(On.At(25, 1), (Cell{U'▇', Style::Played, true})) << "hangs from the middle";
    EXPECT_EQ(On.At(15, 0), (Cell{U'▄', Style::Ahead, false}));
    EXPECT_EQ(On.RowText(2), " ◀ 0:00:20.0 / 0:00:40.0   reverse  50%");
}

TEST_F(ScreenTest, LeavesOutWhatASmallTerminalHasNoRoomFor) {
    EXPECT_EQ(Text(Show(20, 3)), "     :!:::.....|||||\n> 0:00:12.3\n Playing\n");
    Shown.Help = true;
    for (int Size = 0; Size < 60 * 30; ++Size)
        EXPECT_EQ(Show(Size % 60, Size / 60).Height(), Size / 60);
}

TEST_F(ScreenTest, NamesCannotSteerTheTerminalAndAreCutToFit) {
    Shown.Engine = "e";
    Shown.Device = "d";
    const auto Title = [this](const std::string& Name, bool Unicode) {
        Shown.Name = Name;
        Shown.Unicode = Unicode;
        return Show(30, 6).RowText(0);
    };
    EXPECT_EQ(Title("a\x1b[2Jb\n\xff\xc2\x9b", true),
              " a?[2Jb???" + std::string(14, ' ') + "e → d");
    EXPECT_EQ(Title("ü音.wav", false), " ??.wav                e -> d");
    EXPECT_EQ(Title("กิน.wav", true), " กน.wav" + std::string(17, ' ') + "e → d") << "no column";
    EXPECT_EQ(Title("0123456789012345678901234567", true), " 01234567890123456789…  e → d");
    EXPECT_EQ(Title("音音音音音音音音音音音音音", true), " 音音音音音音音音音音…  e → d");
}

TEST(TimeText, CountsTenthsHoursAndTheLongestWave) {
    EXPECT_EQ(TimeText(44100 * 3600 - 1, 44100), "0:59:59.9");
    EXPECT_EQ(TimeText(2147483647, 100), "5965:13:56.4");
}

TEST_F(ScreenTest, PaintsWhatDiffersAndNothingElse) {
    Shown.Unicode = true;
    Shown.Name = "音 one";
    TinyTerminal Screened(60, 14);
    Grid Last;
    const auto Paint = [&] {
        const Grid Next = Show(60, 14);
        const std::string Sent = Painted(Last, Next, Palette::Many);
        Screened.Take(Sent);
        EXPECT_EQ(Text(Screened.Cells), Text(Next));
        for (int At = 0; At < 60 * 14; ++At)
            EXPECT_EQ(Screened.Cells.At(At % 60, At / 60).Inverse,
                      Next.At(At % 60, At / 60).Inverse);
        Last = Next;
        return Sent.size();
    };
    EXPECT_GT(Paint(), 59U * 14);
    EXPECT_EQ(Paint(), 0U);
    Shown.Here -= 10;  // a tenth of a second
    EXPECT_LT(Paint(), 30U);
    Shown.Name = "x音one";
    Shown.Help = true;
    EXPECT_GT(Paint(), 100U);
}

TEST(Look, FollowsTheEnvironment) {
    using Variables = std::map<std::string, std::string>;
    const auto LookIn = [](const Variables& Set) {
        const TerminalLook Look = LookFrom([&Set](const char* Name) {
            return Set.contains(Name) ? Set.at(Name).c_str() : nullptr;
        });
        return std::vector{"none", "16", "256"}.at(static_cast<std::size_t>(Look.Colours)) +
               std::string(Look.Unicode ? " utf" : "") + (Look.CanMove ? "" : " lines");
    };
    EXPECT_EQ(LookIn({}), "16 lines");
    EXPECT_EQ(LookIn({{"TERM", "dumb"}, {"LANG", "de_DE.UTF-8"}}), "none utf lines");
    EXPECT_EQ(LookIn({{"TERM", "linux"}, {"LC_ALL", "C"}, {"LANG", "de_DE.UTF-8"}}), "16");
    EXPECT_EQ(LookIn({{"TERM", "xterm-256color"}, {"LC_ALL", ""}, {"LC_CTYPE", "C.utf8"}}),
              "256 utf");
    EXPECT_EQ(LookIn({{"TERM", "foot"}, {"COLORTERM", "truecolor"}}), "256");
    EXPECT_EQ(LookIn({{"TERM", "xterm-256color"}, {"NO_COLOR", "1"}}), "none");
    EXPECT_EQ(LookIn({{"TERM", "xterm"}, {"NO_COLOR", ""}}), "16");
}

}  // namespace
}  // namespace Tolvar::Testing
