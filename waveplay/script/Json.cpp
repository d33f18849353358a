#include "waveplay/script/Json.h"

#include <utf8.h>

namespace Tolvar {
namespace {

constexpr std::string_view Replacement = "\xEF\xBF\xBD";

void AppendByte(std::string& Out, char Byte) {
    constexpr std::string_view Hex = "0123456789abcdef";
    const auto Code = static_cast<unsigned char>(Byte);
    if (Byte == '"' || Byte == '\\') {
        Out += '\\';
        Out += Byte;
    } else if (Byte == '\n') {
        Out += "\\n";
    } else if (Byte == '\r') {
        Out += "\\r";
    } else if (Byte == '\t') {
        Out += "\\t";
    } else if (Code < 0x20 || Code == 0x7F) {
        Out += "\\u00";
        Out += Hex[Code >> 4];
        Out += Hex[Code & 0xF];
    } else {
        Out += Byte;
    }
}

}  // namespace

std::string JsonString(std::string_view Text) {
    std::string Out = "\"";
    while (!Text.empty()) {
        const std::string_view Valid = Text.substr(0, utf8::find_invalid(Text));
        for (const char Byte : Valid)
            AppendByte(Out, Byte);
        Text.remove_prefix(Valid.size());
        if (Text.empty()) break;
        Out += Replacement;
        Text.remove_prefix(1);
    }
    return Out + '"';
}

}  // namespace Tolvar
