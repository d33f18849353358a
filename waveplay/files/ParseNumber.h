#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace Tolvar {

/// All of Text as a Number; none when it is not one, or does not fit.
template <typename Number>
std::optional<Number> ParseNumber(std::string_view Text) {
    Number Value{};
    const char* const End = Text.data() + Text.size();
    const auto [Rest, Error] = std::from_chars(Text.data(), End, Value);
    if (Error != std::errc() || Rest != End) return std::nullopt;
    return Value;
}

}  // namespace Tolvar
