#pragma once

#include <string>
#include <string_view>

namespace Tolvar {

/// Text as a JSON string with its quotation marks. Bytes that are no UTF-8 become U+FFFD each, so
/// that the result always is. Strings are all the JSON that is written here and none is read: less
/// than a library would take to use.
std::string JsonString(std::string_view Text);

}  // namespace Tolvar
