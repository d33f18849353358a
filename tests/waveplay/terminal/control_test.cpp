#include <gtest/gtest.h>

#include <array>
#include <map>
#include <sstream>

#include "FakePlayer.h"
#include "waveplay/terminal/KeyCommands.h"

namespace Tolvar::Testing {
namespace {

// A listener with a keyboard: a wave of 100 s at 1000 Hz.
class Listener {
  public:
    FakePlayer Player;
    PlayerControl Control;

    Listener() : Control(Player, {100'000, 1000, 1, false, 1.0, 1.0, true}) {
        Player.OnMsgBoxOb(
            [this](std::string_view Msg, std::string_view Ttl) { Control.Report(Msg, Ttl); });
    }

    // Words: the name of a key, a key, or +N for N frames of play.
    std::string Do(const std::string& Words) {
        static const std::map<std::string, std::string> Named{
            {"space", " "},     {"left", "\x1b[D"}, {"right", "\x1b[C"}, {"up", "\x1b[A"},
            {"down", "\x1b[B"}, {"home", "\x1bOH"}, {"end", "\x1b[4~"},  {"back", "\x7f"}};
        std::istringstream From(Words);
        for (std::string Word; From >> Word;) {
            if (Word.front() == '+') {
                Player.Advance(std::stoi(Word));
                continue;
            }
            const auto Found = Named.find(Word);
            for (const Key& Each : Decoder_.Feed(Found == Named.end() ? Word : Found->second))
                Press(Each, Control);
        }
        Control.Refresh();
        constexpr std::array<const char*, 4> States{"stopped", "playing", "paused", "ended"};
        return States.at(static_cast<std::size_t>(Control.State())) +
               std::string(Control.Wave().Direction < 0 ? " back " : " on ") +
               std::to_string(Control.Here());
    }

  private:
    KeyDecoder Decoder_;
};

TEST(Control, KeysMoveThePlayer) {
    const struct {
        const char *Keys, *Calls, *Where;
    } Cases[] = {
        {"space +700 p space +50", "again, pause, continue", "playing on 750"},
        {"space +700 k l +1", "again, stop, at 701", "playing on 701"},
        {"l +9 l l", "again", "playing on 9"},
        // The frame heard last is the first one heard on the way back.
        {"space +700 u +100", "again, turn", "playing back 599"},
        {"space +700 j +100 j", "again, turn", "playing back 599"},
        {"space +700 space j", "again, pause, at-rev 700", "playing back 700"},
        {"space +700 space u space", "again, pause, at-rev 700", "playing back 700"},
        // The end, and what keys do there.
        {"space +100000", "again", "ended on 100000"},
        {"space +100000 space", "again, again", "playing on 0"},
        {"space +100000 u +1", "again, again-rev", "playing back 99999"},
        {"space +100000 left", "again", "stopped on 95000"},
        {"j +100000 space", "again-rev, again-rev", "playing back 100000"},
        // Seeking. What is paused stays paused, and goes on from the new place.
        {"space +700 right", "again, at 5701", "playing on 5700"},
        {"space up left down", "again, at 60001, at 55001, again", "playing on 0"},
        {"5 9", "", "stopped on 90000"},
        {"j 5 right", "again-rev, at-rev 50000, at-rev 55000", "playing back 55000"},
        {"space +700 space right space", "again, pause, at 5701", "playing on 5700"},
        {"space space home left", "again, pause", "paused on 0"},
        // Past an edge: the near one is kept, the far one stops the play.
        {"space +700 left", "again, again", "playing on 0"},
        {"space 9 up", "again, at 90001, stop", "stopped on 100000"},
        {"j home", "again-rev, stop", "stopped back 0"},
        {"o space end o", "loop, again, again, no-loop", "playing on 0"},
        // Tempo.
        {"space +500 }", "again, tempo 2.000, at 501", "playing on 500"},
        {"space +500 space ] space", "again, pause, tempo 1.100, continue", "playing on 500"},
        {"} back [", "tempo 2.000, tempo 1.000, tempo 0.909", "stopped on 0"},
        {"j +500 {", "again-rev, tempo-rev 0.500, at-rev 99500", "playing back 99500"},
        {"{ { { {", "tempo 0.500, tempo 0.250, tempo 0.125, tempo 0.100", "stopped on 0"},
        {"} } } } } } }",
         "tempo 2.000, tempo 4.000, tempo 8.000, tempo 16.00, tempo 32.00, tempo 64.00, tempo "
         "100.0",
         "stopped on 0"}};
    for (const auto& [Keys, Calls, Where] : Cases) {
        Listener With;
        EXPECT_EQ(With.Do(Keys), Where) << Keys;
        EXPECT_EQ(With.Player.Calls, Calls) << Keys;
    }
}

TEST(Control, SeesTheEndWheneverItsReportComes) {
    FakePlayer Over;
    EXPECT_EQ(PlayerControl(Over, {9, 1000, 1, false, 1.0, 1.0, true, true}).State(),
              Transport::Ended);
    Listener At;
    At.Do("space");
    At.Player.EndsWhenAsked = true;
    EXPECT_EQ(At.Do(""), "ended on 100000");
    At.Do("space +700");
    At.Player.Running = 0;
    EXPECT_EQ(At.Do(""), "stopped on 700");
    At.Player.Report("Play Done");
    EXPECT_EQ(At.Do(""), "ended on 100000");
    At.Do("space +700");
    At.Player.Running = 0;
    EXPECT_EQ(At.Do(" "), "stopped on 700");
    At.Do("right");
    At.Player.Report("Play Done");
    EXPECT_EQ(At.Do(""), "stopped on 5700") << "the cursor has been put elsewhere";
}

TEST(Control, ARefusalIsSaidUntilAPlayBeginsAndChangesNothing) {
    for (const char* Keys : {"o", "]", "u", "k", "right", "end", "space"}) {
        Listener With;
        With.Do("space +700");
        With.Player.Refusal = "not now";
        With.Do(Keys);
        EXPECT_EQ(With.Control.Note().Text, "not now") << Keys;
        EXPECT_TRUE(With.Control.Note().IsFailure);
        EXPECT_EQ(With.Do(""), "playing on 700") << Keys;
        EXPECT_FALSE(With.Control.Wave().Loop);
        EXPECT_EQ(With.Control.Rate(), 1.0);
        EXPECT_EQ(With.Do("space"), "paused on 700") << Keys;
        With.Player.Report("Play Failed");
        EXPECT_EQ(With.Control.Note().Text, "Play Failed");
        With.Do("home space");
        EXPECT_EQ(With.Control.Note().Text, "");
        EXPECT_EQ(With.Control.LastReport(), "Playing");
    }
}

TEST(Control, TakesOverWhatIsPlayingAndTheWaveOutEngineHasNoTempo) {
    FakePlayer Player;
    Player.Running = 2;
    Player.Position = 4000;
    PlayerControl Control(Player, {100'000, 1000, -1, true, 1.0, 1.0, false});
    EXPECT_EQ(Control.State(), Transport::Playing);
    EXPECT_EQ(Control.Here(), 3999);
    Control.SetRate(2);
    EXPECT_EQ(Player.Calls, "");
    EXPECT_TRUE(Control.Note().IsFailure);
}

}  // namespace
}  // namespace Tolvar::Testing
