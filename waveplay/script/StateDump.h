#pragma once

#include <cstdint>
#include <string>

namespace Tolvar {

struct PlayerState;
class WoroFileBlockMod;

/// One JSON object of the player state, the engine's code and the store's counters, by their
/// names. Truth values are 0 and -1; a carrier is its length in samples, or null; the sample
/// arrays are left out and of the double buffer only its length is told.
std::string StateDump(const PlayerState& State, std::int32_t EngineCode,
                      const WoroFileBlockMod& Store);

}  // namespace Tolvar
