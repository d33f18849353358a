#pragma once

#include <string>
#include <string_view>

#include "waveplay/terminal/Grid.h"
#include "waveplay/terminal/Utf8.h"

namespace Tolvar::Testing {

/// All rows, each with its line's end.
inline std::string Text(const Grid& On) {
    std::string All;
    for (int Row = 0; Row < On.Height(); ++Row)
        All += On.RowText(Row) + "\n";
    return All;
}

/// A terminal that understands what the painter says and nothing else.
class TinyTerminal {
  public:
    TinyTerminal(int Width, int Height) : Cells(Width, Height, true) {}
    Grid Cells;

    void Take(std::string_view Sent) {
        Held_ += Sent;
        std::size_t Used = 0;
        for (std::size_t Next = 1; Next > 0 && Used < Held_.size(); Used += Next)
            Next = TakeOne(std::string_view(Held_).substr(Used));
        Held_.erase(0, Used);
    }

  private:
    // Its bytes, 0 when more must come first.
    std::size_t TakeOne(std::string_view Bytes) {
        if (Bytes.front() == '\x1b') {
            const std::size_t End = Bytes.find_first_of("HmJhl");
            if (End == std::string_view::npos) return 0;
            Obey(Bytes[End], std::string(Bytes.substr(2, End - 2)));
            return End + 1;
        }
        const DecodedChar Next = DecodeUtf8(Bytes);
        if (Next.Bytes == 0) return 0;
        Cells.Put(Column_, Row_, {Next.Character, Style::Plain, Inverse_});
        Column_ += ColumnsOf(Next.Character);
        if (ColumnsOf(Next.Character) == 2) Cells.Put(Column_ - 1, Row_, {0});
        return Next.Bytes;
    }
    void Obey(char Command, const std::string& With) {
        if (Command == 'J') Cells = Grid(Cells.Width(), Cells.Height(), true);
        if (Command == 'm') Inverse_ = With.ends_with(";7");
        if (Command != 'H') return;
        Row_ = std::stoi(With) - 1;
        Column_ = std::stoi(With.substr(With.find(';') + 1)) - 1;
    }
    std::string Held_;
    int Column_ = 0;
    int Row_ = 0;
    bool Inverse_ = false;
};

}  // namespace Tolvar::Testing
