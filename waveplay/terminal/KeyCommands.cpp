#include "waveplay/terminal/KeyCommands.h"

namespace Tolvar {
namespace {

constexpr double ShortSeconds = 5;
constexpr double LongSeconds = 60;
constexpr double TempoStep = 1.1;
constexpr char32_t ControlL = 0x0c;

struct CharacterCommand {
    char32_t Character;
    void (*Run)(PlayerControl& Player);
};

constexpr CharacterCommand Commands[] = {
    {U' ', [](PlayerControl& Player) { Player.PlayPause(); }},
    {U'p', [](PlayerControl& Player) { Player.PlayPause(); }},
    {U'u', [](PlayerControl& Player) { Player.UTurn(); }},
    {U'j', [](PlayerControl& Player) { Player.PlayReverse(); }},
    {U'k', [](PlayerControl& Player) { Player.Stop(); }},
    {U'l', [](PlayerControl& Player) { Player.PlayForward(); }},
    {U'o', [](PlayerControl& Player) { Player.SetLoop(!Player.Wave().Loop); }},
    {U'[', [](PlayerControl& Player) { Player.SetRate(Player.Rate() / TempoStep); }},
    {U']', [](PlayerControl& Player) { Player.SetRate(Player.Rate() * TempoStep); }},
    {U'{', [](PlayerControl& Player) { Player.SetRate(Player.Rate() / 2); }},
    {U'}', [](PlayerControl& Player) { Player.SetRate(Player.Rate() * 2); }},
};

KeyOutcome PressCharacter(char32_t Character, PlayerControl& Player) {
    if (Character == U'q') return KeyOutcome::Quit;
    if (Character == U'?') return KeyOutcome::Help;
    if (Character == ControlL) return KeyOutcome::Redraw;
    if (Character >= U'1' && Character <= U'9') {
        Player.SeekToFrame(std::int64_t{Player.Wave().WaveNos} * (Character - U'0') / 10);
    }
    for (const CharacterCommand& Each : Commands) {
        if (Each.Character == Character) Each.Run(Player);
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
