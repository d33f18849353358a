#include "waveplay/terminal/Painter.h"

#include <string_view>
#include <utility>

#include "waveplay/terminal/Utf8.h"

namespace Tolvar {
namespace {

std::string_view Coloured(Style Look, Palette Colours) {
    const bool Many = Colours == Palette::Many;
    switch (Look) {
        case Style::Played:
            return Many ? "38;5;39" : "36";
        case Style::Ahead:
            return Many ? "38;5;244" : "39";
        case Style::Cursor:
            return Many ? "1;38;5;208" : "1;33";
        case Style::Live:
            return Many ? "1;38;5;39" : "1;36";
        case Style::Failure:
            return Many ? "1;38;5;203" : "1;31";
        case Style::Strong:
            return "1";
        case Style::Faint:
            return Many ? "38;5;244" : "2";
        case Style::Plain:
            break;
    }
    return "";
}

std::string_view Weighed(Style Look) {
    switch (Look) {
        case Style::Ahead:
        case Style::Faint:
            return "2";
        case Style::Strong:
        case Style::Cursor:
        case Style::Live:
        case Style::Failure:
            return "1";
        case Style::Plain:
        case Style::Played:
            break;
    }
    return "";
}

class Brush {
  public:
    Brush(const Grid& Picture, Palette Wanted) : To(Picture), Colours(Wanted) {}

    void Paint(int Column, int Row) {
        const Cell& What = To.At(Column, Row);
        if (What.Glyph == 0) return;
        if (Column != AtColumn || Row != AtRow) Move(Column, Row);
        if (Fresh || What.Look != Last.Look || What.Inverse != Last.Inverse) Dip(What);
        AppendUtf8(Bytes, What.Glyph);
        AtColumn = Column + ColumnsOf(What.Glyph);
    }

    std::string Done() {
        if (!Bytes.empty()) Bytes += "\x1b[m";
        return std::move(Bytes);
    }

  private:
    void Move(int Column, int Row) {
        Bytes += "\x1b[" + std::to_string(Row + 1) + ";" + std::to_string(Column + 1) + "H";
        AtColumn = Column;
        AtRow = Row;
    }

    void Dip(const Cell& What) {
        Bytes += "\x1b[0";
        const bool None = Colours == Palette::None;
        const std::string_view Code = None ? Weighed(What.Look) : Coloured(What.Look, Colours);
        if (!Code.empty()) Bytes.append(";").append(Code);
        if (What.Inverse) Bytes += ";7";
        Bytes += "m";
        Last = What;
        Fresh = false;
    }

    const Grid& To;
    Palette Colours;
    std::string Bytes;
    Cell Last;
    bool Fresh = true;
    int AtColumn = -1;
    int AtRow = -1;
};

}  // namespace

std::string Painted(const Grid& From, const Grid& To, Palette Colours) {
    const bool Known = From.Width() == To.Width() && From.Height() == To.Height();
    Brush Painting(To, Colours);
    for (int Row = 0; Row < To.Height(); ++Row) {
        for (int Column = 0; Column < To.Width(); ++Column) {
            if (!Known || From.At(Column, Row) != To.At(Column, Row)) Painting.Paint(Column, Row);
        }
    }
    std::string Bytes = Painting.Done();
    return Known || Bytes.empty() ? Bytes : "\x1b[m\x1b[2J" + Bytes;
}

}  // namespace Tolvar
