#pragma once

#include <string>
#include <string_view>

namespace Tolvar {

/// What introspection of the object path answers: the player object's interfaces, or the next
/// step towards it; empty when there is nothing at Path.
std::string IntrospectionOf(std::string_view Path);

}  // namespace Tolvar
