#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/wire/Names.h"

namespace Tolvar::Fuzz {

/// Values as D-Bus marshals them, little end first. It writes what it is told, valid or not.
struct WireBytes {
    std::string Out;

    void Align(std::size_t To) { Out.resize((Out.size() + To - 1) / To * To, '\0'); }
    void Byte(unsigned Value) { Out.push_back(static_cast<char>(Value & 0xFFU)); }
    void Word(std::uint32_t Value) {
        Align(4);
        for (unsigned Shift = 0; Shift < 32; Shift += 8)
            Byte(Value >> Shift);
    }
    void Int(std::int32_t Value) { Word(static_cast<std::uint32_t>(Value)); }
    void Double(double Value) {
        const auto Bits = std::bit_cast<std::uint64_t>(Value);
        Align(8);
        Word(static_cast<std::uint32_t>(Bits));
        Word(static_cast<std::uint32_t>(Bits >> 32U));
    }
    void Text(std::string_view Value) {
        Word(static_cast<std::uint32_t>(Value.size()));
        (Out += Value) += '\0';
    }
    void Signature(std::string_view Value) {
        Byte(static_cast<unsigned>(Value.size()));
        (Out += Value) += '\0';
    }
};

/// What a message says of itself. An empty text is left out.
struct Heading {
    enum class Kind : unsigned { Call = 1, Answer = 2, Error = 3, Signal = 4 };

    Kind Is = Kind::Call;
    std::uint32_t Serial = 1;
    std::string_view Path = Wire::PlayerPath;
    std::string_view Interface = Wire::PlayerInterface;
    std::string_view Member = {};
    std::string_view ErrorName = {};
    std::string_view Signature = {};
    std::uint32_t AnswerTo = 0;
};

inline std::string MessageOf(const Heading& Head, const std::string& Body) {
    WireBytes Fields;  // in the message they begin at a multiple of 8, too
    const auto Field = [&](unsigned Code, const char* Type, std::string_view Value) {
        if (Value.empty()) return;
        Fields.Align(8);
        Fields.Byte(Code);
        Fields.Signature(Type);
        *Type == 'g' ? Fields.Signature(Value) : Fields.Text(Value);
    };
    Field(1, "o", Head.Path);
    Field(2, "s", Head.Interface);
    Field(3, "s", Head.Member);
    Field(4, "s", Head.ErrorName);
    Field(8, "g", Head.Signature);
    if (Head.AnswerTo != 0) {
        Fields.Align(8);
        Fields.Byte(5);
        Fields.Signature("u");
        Fields.Word(Head.AnswerTo);
    }
    WireBytes Whole;
    for (const unsigned Each : {unsigned{'l'}, static_cast<unsigned>(Head.Is), 0U, 1U})
        Whole.Byte(Each);
    Whole.Word(static_cast<std::uint32_t>(Body.size()));
    Whole.Word(Head.Serial);
    Whole.Word(static_cast<std::uint32_t>(Fields.Out.size()));
    Whole.Out += Fields.Out;
    Whole.Align(8);
    return Whole.Out + Body;
}

}  // namespace Tolvar::Fuzz
