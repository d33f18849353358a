#include "waveplay/terminal/KeyCommands.h"

namespace Tolvar {
namespace {

constexpr double ShortSeconds = 5;
constexpr double LongSeconds = 60;
constexpr double TempoStep = 1.1;
constexpr char32_t ControlL = 0x0c;

void SeekToTenth(PlayerControl& Player, char32_t Digit) {
    Player.SeekToFrame(std::int64_t{Player.Wave().WaveNos} * (Digit - U'0') / 10);
}

KeyOutcome PressCharacter(char32_t Character, PlayerControl& Player) {
    if (Character >= U'1' && Character <= U'9') SeekToTenth(Player, Character);
    switch (Character) {
        case U'q':
            return KeyOutcome::Quit;
        case U'?':
            return KeyOutcome::Help;
        case ControlL:
            return KeyOutcome::Redraw;
        case U' ':
        case U'p':
            Player.PlayPause();
            break;
        case U'u':
            Player.UTurn();
            break;
        case U'j':
            Player.PlayReverse();
            break;
        case U'k':
            Player.Stop();
            break;
        case U'l':
            Player.PlayForward();
            break;
        case U'o':
            Player.SetLoop(!Player.Wave().Loop);
            break;
        case U'[':
            Player.SetRate(Player.Rate() / TempoStep);
            break;
        case U']':
            Player.SetRate(Player.Rate() * TempoStep);
            break;
        case U'{':
            Player.SetRate(Player.Rate() / 2);
            break;
        case U'}':
            Player.SetRate(Player.Rate() * 2);
            break;
        default:
            break;
    }
    return KeyOutcome::Done;
}

}  // namespace

KeyOutcome Press(const Key& Pressed, PlayerControl& Player) {
    switch (Pressed.Is) {
        case Key::Name::Character:
            return PressCharacter(Pressed.Character, Player);
        case Key::Name::Left:
            Player.SeekBy(-ShortSeconds);
            break;
        case Key::Name::Right:
            Player.SeekBy(ShortSeconds);
            break;
        case Key::Name::Down:
            Player.SeekBy(-LongSeconds);
            break;
        case Key::Name::Up:
            Player.SeekBy(LongSeconds);
            break;
        case Key::Name::Home:
            Player.SeekToFrame(0);
            break;
        case Key::Name::End:
            Player.SeekToFrame(Player.Wave().WaveNos);
            break;
        case Key::Name::Backspace:
            Player.SetRate(1.0);
            break;
        case Key::Name::Escape:
            break;
    }
    return KeyOutcome::Done;
}

}  // namespace Tolvar
