#include "waveplay/terminal/Utf8.h"

#include <algorithm>
#include <array>

namespace Tolvar {
namespace {

struct Range {
    char32_t First;
    char32_t Last;
};

constexpr std::array<Range, 9> Wide{{{0x1100, 0x115f},
                                     {0x2e80, 0xa4cf},
                                     {0xac00, 0xd7a3},
                                     {0xf900, 0xfaff},
                                     {0xfe30, 0xfe6f},
                                     {0xff00, 0xff60},
                                     {0xffe0, 0xffe6},
                                     {0x1f300, 0x1faff},
                                     {0x20000, 0x3fffd}}};

// Marks that join the character before them, and what is there to steer text.
constexpr std::array<Range, 7> NoColumn{{{0x0300, 0x036f},
                                         {0x1ab0, 0x1aff},
                                         {0x200b, 0x200f},
                                         {0x202a, 0x202e},
                                         {0x2060, 0x206f},
                                         {0x20d0, 0x20ff},
                                         {0xfe00, 0xfe0f}}};

template <std::size_t Count>
bool Holds(const std::array<Range, Count>& Ranges, char32_t Character) {
    return std::ranges::any_of(Ranges, [Character](const Range& Each) {
        return Character >= Each.First && Character <= Each.Last;
    });
}

std::size_t LengthBy(unsigned char Lead) {
    if (Lead < 0x80) return 1;
    if (Lead >= 0xc2 && Lead <= 0xdf) return 2;
    if (Lead >= 0xe0 && Lead <= 0xef) return 3;
    if (Lead >= 0xf0 && Lead <= 0xf4) return 4;
    return 0;
}

bool Allowed(char32_t Character, std::size_t Length) {
    if (Length == 3) {
        return Character >= 0x800 && !(Character >= 0xd800 && Character <= 0xdfff);
    }
    return Length != 4 || (Character >= 0x10000 && Character <= 0x10ffff);
}

}  // namespace

DecodedChar DecodeUtf8(std::string_view Text) {
    const auto Lead = static_cast<unsigned char>(Text.front());
    const std::size_t Length = LengthBy(Lead);
    if (Length == 0) return {1, 0xfffd, false};
    if (Length == 1) return {1, Lead, true};
    char32_t Character = Lead & (0x7fU >> Length);
    for (std::size_t I = 1; I < Length; ++I) {
        if (I == Text.size()) return {};
        const auto Byte = static_cast<unsigned char>(Text[I]);
        if ((Byte & 0xc0) != 0x80) return {1, 0xfffd, false};
        Character = (Character << 6) | (Byte & 0x3f);
    }
    if (!Allowed(Character, Length)) return {1, 0xfffd, false};
    return {Length, Character, true};
}

void AppendUtf8(std::string& To, char32_t Character) {
    const auto Put = [&To](char32_t Byte) { To.push_back(static_cast<char>(Byte)); };
    if (Character < 0x80) {
        Put(Character);
    } else if (Character < 0x800) {
        Put(0xc0 | (Character >> 6));
        Put(0x80 | (Character & 0x3f));
    } else if (Character < 0x10000) {
        Put(0xe0 | (Character >> 12));
        Put(0x80 | ((Character >> 6) & 0x3f));
        Put(0x80 | (Character & 0x3f));
    } else {
        Put(0xf0 | (Character >> 18));
        Put(0x80 | ((Character >> 12) & 0x3f));
        Put(0x80 | ((Character >> 6) & 0x3f));
        Put(0x80 | (Character & 0x3f));
    }
}

int ColumnsOf(char32_t Character) {
    if (Holds(NoColumn, Character)) return 0;
    return Holds(Wide, Character) ? 2 : 1;
}

}  // namespace Tolvar
