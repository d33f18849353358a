#include "waveplay/terminal/WaveDrawing.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

namespace Tolvar {
namespace {

constexpr int Eighths = 8;
constexpr int FullScale = 32768;

// How far a half of Rows rows is filled, in eighths of a row. What is there at all shows.
int Reach(int Amplitude, int Rows) {
    const int Most = Rows * Eighths;
    const int Filled = (Amplitude * Most + FullScale / 2) / FullScale;
    return std::clamp(Filled, Amplitude > 0 ? 1 : 0, Most);
}

// How the cells of a column are drawn.
struct Bar {
    Style Look = Style::Plain;
    bool Unicode = true;
};

// A cell filled to Level eighths from below.
Cell Rising(const Bar& Kind, int Level) {
    if (Level <= 0) return {};
    if (Kind.Unicode) return {U'▁' + static_cast<char32_t>(Level - 1), Kind.Look, false};
    if (Level < 3) return {U'.', Kind.Look, false};
    return {Level < 6 ? U':' : (Kind.Look == Style::Played ? U'#' : U'|'), Kind.Look, false};
}

// A cell filled to Level eighths from above: the rest of it, with the colours exchanged.
Cell Hanging(const Bar& Kind, int Level) {
    if (Level <= 0) return {};
    if (Level >= Eighths) return Rising(Kind, Eighths);
    if (!Kind.Unicode) return Level < 3 ? Cell{U'\'', Kind.Look, false} : Rising(Kind, Level);
    return {U'▁' + static_cast<char32_t>(Eighths - Level - 1), Kind.Look, true};
}

void DrawColumn(Grid& On, int Column, int Top, int Rows, const Peak& Range, const Bar& Kind) {
    if (Rows == 1) {
        const int Loudest = std::max<int>(Range.Greatest, -Range.Least);
        On.Put(Column, Top, Rising(Kind, Reach(Loudest, 1)));
        return;
    }
    const int Half = Rows / 2;
    // Silence is a line in the middle.
    const int Up = std::max(1, Reach(std::max<int>(Range.Greatest, 0), Half));
    const int Down = Reach(std::max(-Range.Least, 0), Half);
    for (int Row = 0; Row < Half; ++Row) {
        On.Put(Column, Top + Half - 1 - Row,
               Rising(Kind, std::clamp(Up - Row * Eighths, 0, Eighths)));
        On.Put(Column, Top + Half + Row,
               Hanging(Kind, std::clamp(Down - Row * Eighths, 0, Eighths)));
    }
}

// Seconds between two times on the ruler.
std::int64_t RulerStep(double Seconds, int Columns) {
    constexpr std::array<std::int64_t, 15> Steps{1,   2,   5,    10,   15,   30,    60,   120,
                                                 300, 600, 1800, 3600, 7200, 18000, 36000};
    constexpr int LeastColumns = 12;
    const double Needed = Seconds * LeastColumns / std::max(1, Columns);
    const auto Found = std::find_if(Steps.begin(), Steps.end(), [Needed](std::int64_t Each) {
        return static_cast<double>(Each) >= Needed;
    });
    return Found == Steps.end() ? Steps.back() : *Found;
}

std::string RulerText(std::int64_t Seconds) {
    const auto Two = [](std::int64_t Number) {
        return (Number < 10 ? "0" : "") + std::to_string(Number);
    };
    const std::int64_t Hours = Seconds / 3600;
    const std::int64_t Minutes = Seconds / 60 % 60;
    return (Hours > 0 ? std::to_string(Hours) + ":" + Two(Minutes) : std::to_string(Minutes)) +
           ":" + Two(Seconds % 60);
}

}  // namespace

int CursorColumn(const View& Shown, int Width) {
    const std::int64_t Frames = std::max(1, Shown.Wave.WaveNos);
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{Shown.Here} * Width / Frames, 0,
                                                     std::max(0, Width - 1)));
}

void DrawWave(Grid& On, const View& Shown, int Top, int Rows) {
    if (Rows < 1) return;
    const int Width = On.Width();
    const int Cursor = CursorColumn(Shown, Width);
    const bool Reverse = Shown.Wave.Direction < 0;
    for (int Column = 0; Column < Width; ++Column) {
        const bool Played = Reverse ? Column > Cursor : Column < Cursor;
        const Bar Kind{Played ? Style::Played : Style::Ahead, Shown.Unicode};
        if (Shown.Overview != nullptr) {
            DrawColumn(On, Column, Top, Rows, Shown.Overview->Column(Column, Width), Kind);
        }
    }
    for (int Row = Top; Row < Top + Rows; ++Row)
        On.Put(Cursor, Row, {Shown.Unicode ? U'┃' : U'!', Style::Cursor, false});
}

void DrawRuler(Grid& On, const View& Shown, int Row) {
    const double Seconds = static_cast<double>(Shown.Wave.WaveNos) / Shown.Wave.FmtFriq;
    const std::int64_t Step = RulerStep(Seconds, On.Width());
    for (std::int64_t At = 0; static_cast<double>(At) < Seconds; At += Step) {
        const auto Column = static_cast<int>(static_cast<double>(At) * On.Width() / Seconds);
        const std::string Text = RulerText(At);
        if (Column + 1 + static_cast<int>(Text.size()) > On.Width()) break;
        On.Put(Column, Row, {Shown.Unicode ? U'╵' : U'\'', Style::Faint, false});
        On.Write(Column + 1, Row, Text, Style::Faint, On.Width());
    }
}

}  // namespace Tolvar
