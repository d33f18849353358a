#include "host/dbus/wire/Message.h"

#include <cerrno>
#include <cstdint>
#include <new>

#include "platform/posix/Posix.h"

namespace Tolvar {
namespace {

constexpr std::string_view Replacement = "\xEF\xBF\xBD";

struct Lead {
    unsigned char From, To;
    std::size_t Length;
    unsigned char SecondFrom, SecondTo;  // the first byte behind it; the others are 80 to BF
};

constexpr Lead Leads[] = {
    {0x01, 0x7F, 1, 0, 0},       {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

// The length of the character that Text begins with; 0: none.
std::size_t CharacterLength(std::string_view Text) {
    const auto Byte = [Text](std::size_t At) { return static_cast<unsigned char>(Text[At]); };
    for (const Lead& L : Leads) {
        if (Byte(0) < L.From || Byte(0) > L.To) continue;
        if (Text.size() < L.Length) return 0;
        if (L.Length > 1 && (Byte(1) < L.SecondFrom || Byte(1) > L.SecondTo)) return 0;
        for (std::size_t At = 2; At < L.Length; ++At) {
            if ((Byte(At) & 0xC0U) != 0x80U) return 0;
        }
        return L.Length;
    }
    return 0;
}

}  // namespace

int Sent(int Result, const std::string& What) {
    if (Result < 0) throw ErrnoFailure(What, -Result, FailureKind::Library);
    return Result;
}

int Taken(int Result) {
    if (Result == -ENOMEM) throw std::bad_alloc();
    if (Result < 0) throw WireError(Wire::InvalidArgs, "the arguments cannot be read");
    return Result;
}

void RequireSignature(sd_bus_message* Call, const char* Signature) {
    if (sd_bus_message_has_signature(Call, Signature) > 0) return;
    const char* Given = sd_bus_message_get_signature(Call, 1);
    throw WireError(Wire::InvalidArgs, std::string(sd_bus_message_get_member(Call)) + " takes (" +
                                           Signature + "), not (" + (Given ? Given : "") + ")");
}

std::string WireText(std::string_view Text) {
    std::string Valid;
    while (!Text.empty()) {
        const std::size_t Length = CharacterLength(Text);
        Valid += Length == 0 ? Replacement : Text.substr(0, Length);
        Text.remove_prefix(Length == 0 ? 1 : Length);
    }
    return Valid;
}

bool Refuse(sd_bus_message* Call, const char* Name, std::string_view Text) noexcept try {
    const std::string Valid = WireText(Text);
    const sd_bus_error Error{Name, Valid.c_str(), 0};
    return sd_bus_reply_method_error(Call, &Error) >= 0;
} catch (const std::bad_alloc&) {
    return false;
}

}  // namespace Tolvar
