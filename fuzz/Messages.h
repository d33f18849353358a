#pragma once

#include <cstdint>
#include <span>

namespace Tolvar::Fuzz {

/// A server on the virtual clock hears what Input says: calls to each of its members with the right
/// and with wrong arguments, answers to its reports, bytes that are no message, and time that
/// passes between. The input is a list of steps, each a byte that says which and its arguments.
/// Ends the program when the server does not hold what it promises.
void HearMessages(std::span<const std::uint8_t> Input);

}  // namespace Tolvar::Fuzz
