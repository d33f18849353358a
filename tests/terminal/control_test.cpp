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

    explicit Listener(const PlayerControl::Facts& Wave = Plain())
        : Control((Player.Loop = Wave.Loop, Player), Wave) {
        Player.OnMsgBoxOb(
            [this](std::string_view Msg, std::string_view Ttl) { Control.Report(Msg, Ttl); });
    }

    static PlayerControl::Facts Plain() { return {100'000, 1000, 1, false, 1.0, 1.0, true}; }

    // Words: the name of a key, a key, or +N for N frames of play.
    std::string Do(const std::string& Words) {
        static const std::map<std::string, std::string> Named{
            {"space", " "},     {"left", "\x1b[D"}, {"right", "\x1b[C"}, {"up", "\x1b[A"},
            {"down", "\x1b[B"}, {"home", "\x1bOH"}, {"end", "\x1b[4~"},  {"back", "\x7f"}};
        std::istringstream From(Words);
        for (std::string Word; From >> Word;) {
            if (Word.size() > 1 && Word.front() == '+') {
                Player.Advance(std::stoi(Word));
            } else {
                const auto Found = Named.find(Word);
                for (const Key& Each : Decoder.Feed(Found == Named.end() ? Word : Found->second))
                    Press(Each, Control);
            }
        }
        Control.Refresh();
        return Where();
    }

    std::string Where() const {
        constexpr std::array<const char*, 4> States{"stopped", "playing", "paused", "ended"};
        return States.at(static_cast<std::size_t>(Control.State())) +
               std::string(Control.Wave().Direction < 0 ? " back " : " on ") +
               std::to_string(Control.Here());
    }

  private:
    KeyDecoder Decoder;
};

struct Case {
    const char* Keys;
    const char* Calls;
    const char* Where;
};

void PrintTo(const Case& Of, std::ostream* To) {
    *To << Of.Keys;
}

class Keys : public testing::TestWithParam<Case> {};

TEST_P(Keys, MoveThePlayer) {
    Listener With;
    EXPECT_EQ(With.Do(GetParam().Keys), GetParam().Where);
    EXPECT_EQ(With.Player.Calls, GetParam().Calls);
}

INSTANTIATE_TEST_SUITE_P(
    Transport, Keys,
    testing::Values(Case{"space +700 p", "again, pause", "paused on 700"},
                    Case{"space +700 space space +50", "again, pause, continue", "playing on 750"},
                    Case{"space +700 k l +1", "again, stop, at 701", "playing on 701"},
                    Case{"k k", "", "stopped on 0"}, Case{"l +9 l l", "again", "playing on 9"},
                    // The frame heard last is the first one heard on the way back.
                    Case{"space +700 u +100", "again, turn", "playing back 599"},
                    Case{"space +700 space j", "again, pause, at-rev 700", "playing back 700"},
                    Case{"space +700 j +100 j", "again, turn", "playing back 599"},
                    Case{"space +700 k j +1", "again, stop, at-rev 700", "playing back 699"},
                    Case{"space +700 space u space", "again, pause, at-rev 700",
                         "playing back 700"},
                    // The end, and what keys do there.
                    Case{"space +100000", "again", "ended on 100000"},
                    Case{"space +100000 space", "again, again", "playing on 0"},
                    Case{"space +100000 u +1", "again, again-rev", "playing back 99999"},
                    Case{"space +100000 k", "again", "stopped on 100000"},
                    Case{"space +100000 left", "again", "stopped on 95000"},
                    Case{"j +100000 space", "again-rev, again-rev", "playing back 100000"}));

INSTANTIATE_TEST_SUITE_P(
    Seeking, Keys,
    testing::Values(
        Case{"space +700 right", "again, at 5701", "playing on 5700"},
        Case{"space up left down", "again, at 60001, at 55001, again", "playing on 0"},
        Case{"5 9", "", "stopped on 90000"},
        Case{"j 5 right", "again-rev, at-rev 50000, at-rev 55000", "playing back 55000"},
        // What is paused stays paused, and goes on from the new place.
        Case{"space +700 space right right", "again, pause", "paused on 10700"},
        Case{"space +700 space right space", "again, pause, at 5701", "playing on 5700"},
        Case{"space space home left", "again, pause", "paused on 0"},
        // Past an edge: the near one is kept, the far one stops the play.
        Case{"space +700 left", "again, again", "playing on 0"},
        Case{"space 9 up", "again, at 90001, stop", "stopped on 100000"},
        Case{"j home", "again-rev, stop", "stopped back 0"},
        Case{"o space end", "loop, again, again", "playing on 0"},
        Case{"o o", "loop, no-loop", "stopped on 0"}));

INSTANTIATE_TEST_SUITE_P(
    Tempo, Keys,
    testing::Values(
        Case{"space +500 }", "again, tempo 2.000, at 501", "playing on 500"},
        Case{"space +500 space ] space", "again, pause, tempo 1.100, continue", "playing on 500"},
        Case{"} back [", "tempo 2.000, tempo 1.000, tempo 0.909", "stopped on 0"},
        Case{"j +500 {", "again-rev, tempo-rev 0.500, at-rev 99500", "playing back 99500"},
        Case{"{ { { { {",
             "tempo 0.500, tempo 0.250, tempo 0.125, tempo 0.100, "
             "tempo 0.100",
             "stopped on 0"},
        Case{"} } } } } } }",
             "tempo 2.000, tempo 4.000, tempo 8.000, tempo 16.00, "
             "tempo 32.00, tempo 64.00, tempo 100.0",
             "stopped on 0"}));

TEST(Control, TakesOverWhatIsPlaying) {
    FakePlayer Player;
    Player.Running = 2;
    Player.Position = 4000;
    const PlayerControl Control(Player, {100'000, 1000, -1, true, 1.0, 1.0, true});
    EXPECT_EQ(Control.State(), Transport::Playing);
    EXPECT_EQ(Control.Here(), 3999);
}

TEST(Control, ARefusalIsSaidAndChangesNothing) {
    for (const char* Keys : {"o", "]", "u", "k", "right", "end", "space"}) {
        Listener With;
        With.Do("space +700");
        With.Player.Refusal = "not now";
        With.Do(Keys);
        EXPECT_EQ(With.Control.Note().Text, "not now") << Keys;
        EXPECT_TRUE(With.Control.Note().IsFailure);
        EXPECT_EQ(With.Where(), "playing on 700") << Keys;
        EXPECT_FALSE(With.Control.Wave().Loop);
        EXPECT_EQ(With.Control.Rate(), 1.0);
        EXPECT_EQ(With.Do("space"), "paused on 700") << Keys;
    }
}

TEST(Control, APlayThatFailsIsSaidAndCanBeTriedAgain) {
    Listener With;
    With.Player.Sounds = false;
    EXPECT_EQ(With.Do("5 space"), "stopped on 50000");
    EXPECT_EQ(With.Control.Note().Text, "Play Failed");
    With.Player.Sounds = true;
    EXPECT_EQ(With.Do("space"), "playing on 50000");
    EXPECT_EQ(With.Control.Note().Text, "");
    EXPECT_EQ(With.Control.LastReport(), "Playing");
}

TEST(Control, TheWaveOutEngineHasNoTempo) {
    auto Wave = Listener::Plain();
    Wave.HasTempo = false;
    Listener With(Wave);
    With.Do("]");
    EXPECT_EQ(With.Player.Calls, "");
    EXPECT_TRUE(With.Control.Note().IsFailure);
}

TEST(Control, TellsListenersWhatChanged) {
    Listener With;
    std::string Told;
    With.Control.Listen([&](PlayerControl::Change What) {
        if (What != PlayerControl::Change::Note) Told += "TJRLN"[static_cast<int>(What)];
    });
    With.Do("space right u space o ]");
    EXPECT_EQ(Told, "TJJTLR");
}

}  // namespace
}  // namespace Tolvar::Testing
