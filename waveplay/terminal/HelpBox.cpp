#include "waveplay/terminal/HelpBox.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace Tolvar {
namespace {

struct Hint {
    std::string_view Keys;
    std::string_view Does;
};

constexpr std::array<Hint, 8> Hints{{{"space", "pause"},
                                     {"q", "quit"},
                                     {"?", "keys"},
                                     {"u", "turn"},
                                     {"o", "loop"},
                                     {"j k l", "reverse stop forward"},
                                     {"[ ]", "tempo"},
                                     {"1-9", "jump"}}};

constexpr std::array<Hint, 13> Keys{{{"space, p", "pause and go on"},
                                     {"left, right", "5 seconds back, ahead"},
                                     {"down, up", "1 minute back, ahead"},
                                     {"home, end", "to the start, to the end"},
                                     {"1 to 9", "to that tenth of the wave"},
                                     {"u", "turn round here"},
                                     {"j", "play in reverse from here"},
                                     {"k", "stop"},
                                     {"l", "play forward from here"},
                                     {"o", "loop on, off"},
                                     {"[ ]", "tempo 10 % slower, faster"},
                                     {"{ }", "half, double the tempo"},
                                     {"backspace", "tempo 1.0"}}};

constexpr std::string_view LastLine = "q quits; any key closes this";
constexpr int BoxWidth = 44;
constexpr int DoesColumn = 15;

struct Frame {
    char32_t Across, Down, TopLeft, TopRight, BottomLeft, BottomRight;
};

void DrawFrame(Grid& On, int Left, int Top, int Height) {
    const Frame Lines = On.Unicode() ? Frame{U'─', U'│', U'╭', U'╮', U'╰', U'╯'}
                                     : Frame{U'-', U'|', U'+', U'+', U'+', U'+'};
    const int Right = Left + BoxWidth - 1;
    const int Bottom = Top + Height - 1;
    for (int Row = Top; Row <= Bottom; ++Row) {
        const bool Edge = Row == Top || Row == Bottom;
        for (int Column = Left - 1; Column <= Right + 1; ++Column) {
            const bool Line = Edge && Column >= Left && Column <= Right;
            On.Put(Column, Row, {Line ? Lines.Across : U' ', Style::Faint, false});
        }
        if (Edge) continue;
        On.Put(Left, Row, {Lines.Down, Style::Faint, false});
        On.Put(Right, Row, {Lines.Down, Style::Faint, false});
    }
    On.Put(Left, Top, {Lines.TopLeft, Style::Faint, false});
    On.Put(Right, Top, {Lines.TopRight, Style::Faint, false});
    On.Put(Left, Bottom, {Lines.BottomLeft, Style::Faint, false});
    On.Put(Right, Bottom, {Lines.BottomRight, Style::Faint, false});
}

}  // namespace

void DrawHints(Grid& On, int Row) {
    int Column = 1;
    for (const Hint& Each : Hints) {
        const int Wide = static_cast<int>(Each.Keys.size() + 1 + Each.Does.size());
        if (Column + Wide >= On.Width()) return;
        Column = On.Write(Column, Row, Each.Keys, Style::Strong, Wide);
        Column = On.Write(Column + 1, Row, Each.Does, Style::Faint, Wide) + 2;
    }
}

void DrawHelp(Grid& On) {
    constexpr int Height = static_cast<int>(Keys.size()) + 4;
    const int Left = std::max(0, (On.Width() - BoxWidth) / 2);
    const int Top = std::max(0, (On.Height() - Height) / 2);
    DrawFrame(On, Left, Top, Height);
    int Row = Top + 1;
    for (const Hint& Each : Keys) {
        On.Write(Left + 2, Row, Each.Keys, Style::Strong, DoesColumn - 2);
        On.Write(Left + DoesColumn, Row++, Each.Does, Style::Plain, BoxWidth - DoesColumn - 1);
    }
    On.Write(Left + 2, Row + 1, LastLine, Style::Faint, BoxWidth - 4);
}

}  // namespace Tolvar
