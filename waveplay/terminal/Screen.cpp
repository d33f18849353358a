#include "waveplay/terminal/Screen.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "waveplay/terminal/HelpBox.h"
#include "waveplay/terminal/WaveDrawing.h"

namespace Tolvar {
namespace {

constexpr int Margin = 1;

// Which rows a height has room for; -1 has no row.
struct Layout {
    int Title = -1;
    int Wave = 0;
    int WaveRows = 0;
    int Ruler = -1;
    int Status = -1;
    int Settings = -1;
    int Report = -1;
    int Hints = -1;
};

// From the bottom up; the waveform has what is left.
Layout LayoutFor(int Height) {
    Layout Rows;
    int Bottom = Height - 1;
    if (Height >= 9) Rows.Hints = Bottom--;
    if (Height >= 3) Rows.Report = Bottom--;
    if (Height >= 5) Rows.Settings = Bottom--;
    if (Height >= 1) Rows.Status = Bottom--;
    if (Height >= 14) --Bottom;
    if (Height >= 7) Rows.Ruler = Bottom--;
    if (Height >= 6) Rows.Title = Rows.Wave++;
    if (Height >= 14) ++Rows.Wave;
    Rows.WaveRows = std::max(0, Bottom - Rows.Wave + 1);
    if (Rows.WaveRows > 1 && Rows.WaveRows % 2 == 1) {
        --Rows.WaveRows;
        ++Rows.Wave;  // the row that is left over parts it from the title
    }
    return Rows;
}

struct StateLook {
    const char* Symbol;
    const char* Plain;
    const char* Word;
    Style Look;
};

StateLook LookOf(const View& Shown) {
    const bool Reverse = Shown.Wave.Direction < 0;
    switch (Shown.State) {
        case Transport::Playing:
            return Reverse ? StateLook{"◀", "<", "reverse", Style::Live}
                           : StateLook{"▶", ">", "forward", Style::Live};
        case Transport::Paused:
            return {"⏸", "=", Reverse ? "paused, reverse" : "paused", Style::Strong};
        case Transport::Ended:
            return {"■", "#", "ended", Style::Strong};
        case Transport::Stopped:
            break;
    }
    return {"■", "#", Reverse ? "stopped, reverse" : "stopped", Style::Strong};
}

std::string Percent(const View& Shown) {
    const auto Part = std::int64_t{Shown.Here} * 100 / std::max(1, Shown.Wave.WaveNos);
    return std::to_string(Part) + "%";
}

// Right-aligned, when it fits behind column From.
void WriteRight(Grid& On, int From, int Row, const std::string& Text, Style Look) {
    const int Wide = ColumnsOf(Text, On.Unicode());
    const int Column = On.Width() - Margin - Wide;
    if (Column > From) On.Write(Column, Row, Text, Look, Wide);
}

void DrawTitle(Grid& On, const View& Shown, int Row) {
    const std::string Where = Shown.Engine + (Shown.Unicode ? " → " : " -> ") + Shown.Device;
    const int Wide = ColumnsOf(Where, Shown.Unicode);
    const bool Both = On.Width() >= Wide + 20;
    const int Room = On.Width() - 2 * Margin - (Both ? Wide + 2 : 0);
    const int End = On.Write(Margin, Row, Shown.Name, Style::Strong, Room);
    if (Both) WriteRight(On, End, Row, Where, Style::Faint);
}

void DrawStatus(Grid& On, const View& Shown, int Row) {
    const StateLook State = LookOf(Shown);
    const int Room = On.Width();
    const std::string Elapsed = TimeText(Shown.Here, Shown.Wave.FmtFriq);
    const std::string Total = TimeText(Shown.Wave.WaveNos, Shown.Wave.FmtFriq);
    int Column = Room > 24 ? Margin : 0;
    Column = On.Write(Column, Row, Shown.Unicode ? State.Symbol : State.Plain, State.Look, Room);
    Column = On.Write(Column + 1, Row, Elapsed, Style::Strong, Room);
    const std::string OfTotal = " / " + Total;
    if (Column + static_cast<int>(OfTotal.size()) > Room) return;
    Column = On.Write(Column, Row, OfTotal, Style::Plain, Room);
    const int StateEnd = Column + 3 + static_cast<int>(std::string(State.Word).size());
    if (StateEnd <= Room) Column = On.Write(Column + 3, Row, State.Word, State.Look, Room);
    WriteRight(On, Column + 1, Row, Percent(Shown), Style::Plain);
}

std::string TempoText(double Tempo) {
    std::array<char, 32> Text{};
    std::snprintf(Text.data(), Text.size(), Tempo < 10 ? "%.2f" : "%.1f", Tempo);
    return Text.data();
}

// The tempo of the direction that is not played stands back.
void DrawSettings(Grid& On, const View& Shown, int Row) {
    const bool Reverse = Shown.Wave.Direction < 0;
    const std::string Times = Shown.Unicode ? "×" : "x";
    const std::string Forward =
        (Shown.Unicode ? "▶ " : "> ") + TempoText(Shown.Wave.TempoFor) + Times;
    const std::string Backward =
        (Shown.Unicode ? "◀ " : "< ") + TempoText(Shown.Wave.TempoRev) + Times;
    const int Room = On.Width();
    int Column = Margin;
    if (Room >= 40) Column = On.Write(Column, Row, "tempo ", Style::Faint, Room);
    Column = On.Write(Column, Row, Forward, Reverse ? Style::Faint : Style::Plain, Room - Column);
    Column = On.Write(Column + 2, Row, Backward, Reverse ? Style::Plain : Style::Faint,
                      Room - Column - 2);
    if (Column + 11 < Room) {
        Column = On.Write(Column + 3, Row, "loop ", Style::Faint, Room);
        Column = On.Write(Column, Row, Shown.Wave.Loop ? "on" : "off",
                          Shown.Wave.Loop ? Style::Live : Style::Faint, Room);
    }
    WriteRight(On, Column + 1, Row, Shown.Format, Style::Faint);
}

void DrawReport(Grid& On, const View& Shown, int Row) {
    const bool HasNote = !Shown.Note.Text.empty();
    const Style Look = !HasNote               ? Style::Faint
                       : Shown.Note.IsFailure ? Style::Failure
                                              : Style::Plain;
    const std::string& Text = HasNote ? Shown.Note.Text : Shown.LastReport;
    On.Write(Margin, Row, Text, Look, On.Width() - 2 * Margin);
}

}  // namespace

std::string TimeText(std::int64_t Frames, std::int32_t FmtFriq) {
    const std::int64_t Tenths = Frames * 10 / std::max(1, FmtFriq);
    const std::int64_t Seconds = Tenths / 10;
    std::array<char, 40> Text{};
    std::snprintf(Text.data(), Text.size(), "%lld:%02lld:%02lld.%lld",
                  static_cast<long long>(Seconds / 3600), static_cast<long long>(Seconds / 60 % 60),
                  static_cast<long long>(Seconds % 60), static_cast<long long>(Tenths % 10));
    return Text.data();
}

Grid Screen(const View& Shown) {
    Grid On(std::max(0, Shown.Width), std::max(0, Shown.Height), Shown.Unicode);
    const Layout Rows = LayoutFor(On.Height());
    if (Rows.Title >= 0) DrawTitle(On, Shown, Rows.Title);
    DrawWave(On, Shown, Rows.Wave, Rows.WaveRows);
    if (Rows.Ruler >= 0) DrawRuler(On, Shown, Rows.Ruler);
    if (Rows.Status >= 0) DrawStatus(On, Shown, Rows.Status);
    if (Rows.Settings >= 0) DrawSettings(On, Shown, Rows.Settings);
    if (Rows.Report >= 0) DrawReport(On, Shown, Rows.Report);
    if (Rows.Hints >= 0) DrawHints(On, Rows.Hints);
    if (Shown.Help) DrawHelp(On);
    return On;
}

}  // namespace Tolvar
