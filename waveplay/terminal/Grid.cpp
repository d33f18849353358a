#include "waveplay/terminal/Grid.h"

#include <utf8.h>

#include <algorithm>

#include "waveplay/terminal/Utf8.h"

namespace Tolvar {
namespace {

// The characters that are shown of a text: nothing in them steers the terminal.
std::u32string Printable(std::string_view Text, bool Unicode) {
    std::u32string Glyphs;
    while (!Text.empty()) {
        DecodedChar Next = DecodeUtf8(Text);
        if (Next.Bytes == 0) Next.Bytes = Text.size();
        Text.remove_prefix(Next.Bytes);
        const char32_t Character = Next.Character;
        const bool Control = Character < 0x20 || (Character >= 0x7f && Character < 0xa0);
        if (!Next.Valid || Control || (!Unicode && Character > 0x7e)) {
            Glyphs.push_back('?');
        } else if (ColumnsOf(Character) > 0) {
            Glyphs.push_back(Character);
        }
    }
    return Glyphs;
}

int ColumnsIn(const std::u32string& Glyphs) {
    int Columns = 0;
    for (const char32_t Each : Glyphs)
        Columns += ColumnsOf(Each);
    return Columns;
}

}  // namespace

int ColumnsOf(std::string_view Text, bool Unicode) {
    return ColumnsIn(Printable(Text, Unicode));
}

Grid::Grid(int Columns, int Rows, bool Unicode)
    : Width_(Columns),
      Height_(Rows),
      Unicode_(Unicode),
      Cells_(static_cast<std::size_t>(Columns) * static_cast<std::size_t>(Rows)) {}

bool Grid::Inside(int Column, int Row) const {
    return Column >= 0 && Column < Width_ && Row >= 0 && Row < Height_;
}

const Cell& Grid::At(int Column, int Row) const {
    return Cells_[static_cast<std::size_t>(Row) * static_cast<std::size_t>(Width_) +
                  static_cast<std::size_t>(Column)];
}

void Grid::Put(int Column, int Row, const Cell& What) {
    if (!Inside(Column, Row)) return;
    Cells_[static_cast<std::size_t>(Row) * static_cast<std::size_t>(Width_) +
           static_cast<std::size_t>(Column)] = What;
}

int Grid::Write(int Column, int Row, std::string_view Text, Style Look, int Room) {
    Room = std::min(Room, Width_ - Column);
    const std::u32string Glyphs = Printable(Text, Unicode_);
    const bool Cut = ColumnsIn(Glyphs) > Room;
    const int End = Column + Room - (Cut ? 1 : 0);
    for (const char32_t Each : Glyphs) {
        const int Wide = ColumnsOf(Each);
        if (Column + Wide > End) break;
        Put(Column, Row, {Each, Look, false});
        if (Wide == 2) Put(Column + 1, Row, {0, Look, false});
        Column += Wide;
    }
    if (Cut && Room > 0) Put(Column++, Row, {Unicode_ ? U'…' : U'~', Look, false});
    return Column;
}

std::string Grid::RowText(int Row) const {
    std::string Text;
    for (int Column = 0; Column < Width_; ++Column) {
        const char32_t Glyph = At(Column, Row).Glyph;
        if (Glyph != 0) utf8::append(Glyph, Text);
    }
    Text.erase(Text.find_last_not_of(' ') + 1);
    return Text;
}

}  // namespace Tolvar
