#pragma once

#include <string>
#include <string_view>

namespace Tolvar {

/// Text as a JSON string with its quotation marks. Bytes that are no UTF-8 become U+FFFD each, so
/// that the result always is.
std::string JsonString(std::string_view Text);

}  // namespace Tolvar
