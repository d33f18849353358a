#include "waveplay/terminal/Utf8.h"

#include <uniwidth.h>
#include <utf8.h>

#include <algorithm>

namespace Tolvar {
namespace {

// The library takes these for the first byte of a character, too long or too large as it would be.
bool NeverLeads(unsigned char Byte) {
    return Byte == 0xc0 || Byte == 0xc1 || Byte >= 0xf5;
}

}  // namespace

DecodedChar DecodeUtf8(std::string_view Text) {
    const char* Next = Text.data();
    try {
        const char32_t Character = utf8::next(Next, Text.data() + Text.size());
        return {static_cast<std::size_t>(Next - Text.data()), Character, true};
    } catch (const utf8::not_enough_room&) {
        if (!NeverLeads(static_cast<unsigned char>(Text.front()))) return {};
    } catch (const utf8::exception&) {
        // A byte that cannot stand here.
    }
    return {1, 0xfffd, false};
}

int ColumnsOf(char32_t Character) {
    return std::max(0, uc_width(Character, "UTF-8"));  // less than 0 for control characters
}

}  // namespace Tolvar
