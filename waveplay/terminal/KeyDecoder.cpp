#include "waveplay/terminal/KeyDecoder.h"

#include <optional>

#include "waveplay/terminal/Utf8.h"

namespace Tolvar {
namespace {

constexpr std::size_t LongestSequence = 32;

struct Taken {
    std::size_t Bytes = 0;  // 0: more must come first
    std::optional<Key> Pressed;
};

std::optional<Key> Named(Key::Name Name) {
    return Key{Name, 0};
}

std::optional<Key> LetterKey(char Final) {
    switch (Final) {
        case 'A':
            return Named(Key::Name::Up);
        case 'B':
            return Named(Key::Name::Down);
        case 'C':
            return Named(Key::Name::Right);
        case 'D':
            return Named(Key::Name::Left);
        case 'H':
            return Named(Key::Name::Home);
        case 'F':
            return Named(Key::Name::End);
        default:
            return std::nullopt;
    }
}

// "1~" and its like, perhaps with a modifier behind the number.
std::optional<Key> NumberKey(std::string_view Parameters) {
    const std::string_view Number = Parameters.substr(0, Parameters.find(';'));
    if (Number == "1" || Number == "7") return Named(Key::Name::Home);
    if (Number == "4" || Number == "8") return Named(Key::Name::End);
    return std::nullopt;
}

Taken TakeControlSequence(std::string_view Bytes) {
    for (std::size_t I = 2; I < Bytes.size(); ++I) {
        const char Byte = Bytes[I];
        if (Byte >= 0x20 && Byte <= 0x3f) continue;
        if (Byte < 0x40) return {I, std::nullopt};  // broken off; what broke it stands for itself
        const std::string_view Parameters = Bytes.substr(2, I - 2);
        return {I + 1, Byte == '~' ? NumberKey(Parameters) : LetterKey(Byte)};
    }
    return {Bytes.size() > LongestSequence ? Bytes.size() : 0, std::nullopt};
}

Taken TakeEscape(std::string_view Bytes) {
    if (Bytes.size() == 1) return {};
    if (Bytes[1] == '[') return TakeControlSequence(Bytes);
    if (Bytes[1] == 'O') return Bytes.size() < 3 ? Taken{} : Taken{3, LetterKey(Bytes[2])};
    if (Bytes[1] == '\x1b') return {1, Named(Key::Name::Escape)};
    // A key held down together with Alt: none of ours, and not Escape either.
    const DecodedChar Behind = DecodeUtf8(Bytes.substr(1));
    return {Behind.Bytes == 0 ? 0 : Behind.Bytes + 1, std::nullopt};
}

Taken TakeKey(std::string_view Bytes) {
    if (Bytes.front() == '\x1b') return TakeEscape(Bytes);
    const DecodedChar Next = DecodeUtf8(Bytes);
    if (Next.Bytes == 0 || !Next.Valid) return {Next.Bytes, std::nullopt};
    if (Next.Character == 0x7f || Next.Character == 0x08) {
        return {Next.Bytes, Named(Key::Name::Backspace)};
    }
    return {Next.Bytes, Key{Key::Name::Character, Next.Character}};
}

}  // namespace

std::vector<Key> KeyDecoder::Feed(std::string_view Bytes) {
    Held_ += Bytes;
    std::vector<Key> Keys;
    std::size_t At = 0;
    while (At < Held_.size()) {
        const Taken Next = TakeKey(std::string_view(Held_).substr(At));
        if (Next.Bytes == 0) break;
        if (Next.Pressed) Keys.push_back(*Next.Pressed);
        At += Next.Bytes;
    }
    Held_.erase(0, At);
    return Keys;
}

std::vector<Key> KeyDecoder::Flush() {
    const bool Alone = Held_ == "\x1b";
    Held_.clear();
    if (Alone) return {Key{Key::Name::Escape, 0}};
    return {};
}

}  // namespace Tolvar
