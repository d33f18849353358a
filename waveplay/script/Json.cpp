#include "waveplay/script/Json.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Tolvar {
namespace {

constexpr std::string_view Replacement = "\xEF\xBF\xBD";

unsigned char ByteAt(std::string_view Text, std::size_t Index) {
    return static_cast<unsigned char>(Text[Index]);
}

// What the first byte promises: how many more follow and the range of the first of them, which
// keeps out overlong forms, surrogates and what lies beyond U+10FFFF.
struct Lead {
    std::size_t More;
    unsigned char Low;
    unsigned char High;
};

Lead LeadOf(unsigned char First) {
    if (First < 0x80) return {0, 0, 0};
    if (First >= 0xC2 && First <= 0xDF) return {1, 0x80, 0xBF};
    if (First == 0xE0) return {2, 0xA0, 0xBF};
    if (First == 0xED) return {2, 0x80, 0x9F};
    if (First >= 0xE1 && First <= 0xEF) return {2, 0x80, 0xBF};
    if (First == 0xF0) return {3, 0x90, 0xBF};
    if (First >= 0xF1 && First <= 0xF3) return {3, 0x80, 0xBF};
    if (First == 0xF4) return {3, 0x80, 0x8F};
    return {1, 1, 0};  // nothing can follow it
}

// Bytes of the character that Text begins with, 0 when it begins with none.
std::size_t CharacterBytes(std::string_view Text) {
    const auto [More, Low, High] = LeadOf(ByteAt(Text, 0));
    if (Text.size() <= More) return 0;
    if (More == 0) return 1;
    if (ByteAt(Text, 1) < Low || ByteAt(Text, 1) > High) return 0;
    for (std::size_t Index = 2; Index <= More; ++Index) {
        if ((ByteAt(Text, Index) & 0xC0) != 0x80) return 0;
    }
    return More + 1;
}

void AppendCharacter(std::string& Out, std::string_view Character) {
    constexpr std::string_view Hex = "0123456789abcdef";
    const unsigned char First = ByteAt(Character, 0);
    switch (First) {
        case '"':
        case '\\':
            Out += '\\';
            Out += Character;
            return;
        case '\n':
            Out += "\\n";
            return;
        case '\r':
            Out += "\\r";
            return;
        case '\t':
            Out += "\\t";
            return;
        default:
            break;
    }
    if (First >= 0x20 && First != 0x7F) {
        Out += Character;
        return;
    }
    Out += "\\u00";
    Out += Hex[First >> 4];
    Out += Hex[First & 0xF];
}

}  // namespace

std::string JsonString(std::string_view Text) {
    std::string Out = "\"";
    while (!Text.empty()) {
        const std::size_t Bytes = CharacterBytes(Text);
        if (Bytes == 0) {
            Out += Replacement;
            Text.remove_prefix(1);
            continue;
        }
        AppendCharacter(Out, Text.substr(0, Bytes));
        Text.remove_prefix(Bytes);
    }
    return Out + '"';
}

}  // namespace Tolvar
