#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tolvar {

/// What a cell is, not how it looks: the painter has the colours.
enum class Style : unsigned char { Plain, Faint, Strong, Played, Ahead, Cursor, Live, Failure };

struct Cell {
    char32_t Glyph = ' ';  ///< 0: the right half of a wide character
    Style Look = Style::Plain;
    bool Inverse = false;

    bool operator==(const Cell&) const = default;
};

/// The cells of a screen. What is put outside of it is cut off. Together with Painter, Terminal and
/// KeyDecoder it stands where curses could: that library waits for a terminal that takes no output,
/// and play must not.
class Grid {
  public:
    Grid() = default;
    /// Blank. Sizes of 0 or more.
    Grid(int Columns, int Rows, bool Unicode);

    int Width() const { return Width_; }
    int Height() const { return Height_; }
    bool Unicode() const { return Unicode_; }

    const Cell& At(int Column, int Row) const;
    void Put(int Column, int Row, const Cell& What);

    /// Text (UTF-8, which may be broken) from Column on, in at most Room columns; a longer one ends
    /// with a mark. Control characters, and without Unicode all that is not ASCII, become '?'.
    /// Returns the column behind it.
    int Write(int Column, int Row, std::string_view Text, Style Look, int Room);

    /// The row's characters, without blanks at its end.
    std::string RowText(int Row) const;

    bool operator==(const Grid&) const = default;

  private:
    bool Inside(int Column, int Row) const;

    int Width_ = 0;
    int Height_ = 0;
    bool Unicode_ = true;
    std::vector<Cell> Cells_;
};

/// Columns that Grid::Write takes for Text when there is room.
int ColumnsOf(std::string_view Text, bool Unicode);

}  // namespace Tolvar
