#pragma once

#include <cstddef>
#include <string_view>

namespace Tolvar {

struct DecodedChar {
    std::size_t Bytes = 0;  ///< that it takes; 0: the text ends inside of it
    char32_t Character = 0xfffd;
    bool Valid = false;
};

/// The first character of Text, which is not empty. A byte that cannot begin or go on a character
/// is taken alone, as an invalid one.
DecodedChar DecodeUtf8(std::string_view Text);

/// Columns that a terminal gives the character: 0, 1 or 2.
int ColumnsOf(char32_t Character);

}  // namespace Tolvar
