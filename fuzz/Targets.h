#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace Tolvar::Fuzz {

// Each takes any bytes, works in memory, and ends the program when what it tries does not hold what
// it promises.

using Bytes = std::span<const std::uint8_t>;

/// A server on the virtual clock hears what Input says: calls to each of its members with the right
/// and with wrong arguments, answers to its reports, bytes that are no message, and time that
/// passes between. The input is a list of steps, each a byte that says which and its arguments.
void HearMessages(Bytes Input);

/// The 32-bit values of Input are a channel's block list, handed over, read and let go of.
void HandOverList(Bytes Input);

/// Input is a script for the console, looked through as a whole.
void LookThroughScript(Bytes Input);

/// Input is a sound file that is to be played where it lies.
void PlaceSound(Bytes Input);

inline void Demand(bool Holds, const char* What) {
    if (Holds) return;
    std::fprintf(stderr, "this does not hold: %s\n", What);
    std::abort();
}

}  // namespace Tolvar::Fuzz
