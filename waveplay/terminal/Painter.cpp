#include "waveplay/terminal/Painter.h"

#include <utf8.h>

#include <string_view>
#include <utility>

#include "waveplay/terminal/Utf8.h"

namespace Tolvar {
namespace {

std::string_view ColourCode(Style Look, Palette Colours) {
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

std::string_view WeightCode(Style Look) {
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

class CellWriter {
  public:
    CellWriter(const Grid& To, Palette Colours) : To_(To), Colours_(Colours) {}

    void Write(int Column, int Row) {
        const Cell& What = To_.At(Column, Row);
        if (What.Glyph == 0) return;
        if (Column != AtColumn_ || Row != AtRow_) MoveTo(Column, Row);
        if (StyleUnknown_ || What.Look != Last_.Look || What.Inverse != Last_.Inverse)
            SetStyle(What);
        utf8::append(What.Glyph, Bytes_);
        AtColumn_ = Column + ColumnsOf(What.Glyph);
    }

    std::string TakeBytes() {
        if (!Bytes_.empty()) Bytes_ += "\x1b[m";
        return std::move(Bytes_);
    }

  private:
    void MoveTo(int Column, int Row) {
        Bytes_ += "\x1b[" + std::to_string(Row + 1) + ";" + std::to_string(Column + 1) + "H";
        AtColumn_ = Column;
        AtRow_ = Row;
    }

    void SetStyle(const Cell& What) {
        Bytes_ += "\x1b[0";
        const bool None = Colours_ == Palette::None;
        const std::string_view Code =
            None ? WeightCode(What.Look) : ColourCode(What.Look, Colours_);
        if (!Code.empty()) Bytes_.append(";").append(Code);
        if (What.Inverse) Bytes_ += ";7";
        Bytes_ += "m";
        Last_ = What;
        StyleUnknown_ = false;
    }

    const Grid& To_;
    Palette Colours_;
    std::string Bytes_;
    Cell Last_;
    bool StyleUnknown_ = true;
    int AtColumn_ = -1;
    int AtRow_ = -1;
};

}  // namespace

std::string Painted(const Grid& From, const Grid& To, Palette Colours) {
    const bool Known = From.Width() == To.Width() && From.Height() == To.Height();
    CellWriter Writer(To, Colours);
    for (int Row = 0; Row < To.Height(); ++Row) {
        for (int Column = 0; Column < To.Width(); ++Column) {
            if (!Known || From.At(Column, Row) != To.At(Column, Row)) Writer.Write(Column, Row);
        }
    }
    std::string Bytes = Writer.TakeBytes();
    return Known || Bytes.empty() ? Bytes : "\x1b[m\x1b[2J" + Bytes;
}

}  // namespace Tolvar
