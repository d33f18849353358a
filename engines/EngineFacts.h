#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Tolvar {

/// Which engines DxObj may select.
enum class EngineOrder {
    Auto,  ///< every engine, in the order of preference: these three
    Dx9,
    Dx7,
    WaveOut,
};

/// What an engine is known by and how it differs from the others, wherever somebody has to know.
struct EngineFacts {
    EngineOrder Name;
    std::string_view Word;         ///< in options and scripts
    std::string_view Title;        ///< for a person to read
    std::int32_t Code;             ///< PlayDllClass::EngineCode
    std::int32_t Answer;           ///< what DxObj writes back
    bool HasTempo;                 ///< others play at the wave's own rate
    bool PlayerTellsOfPlayFailed;  ///< the player adds "Play Failed" to a run that did not start
    bool PositionIsAskedFor;       ///< PlayCurrentPosition asks the engine, not its last poll
};

/// In the order of preference.
inline constexpr std::array<EngineFacts, 3> AllEngineFacts{{
    {EngineOrder::Dx9, "dx9", "DirectSound 9", 3, 1, true, false, true},
    {EngineOrder::Dx7, "dx7", "DirectSound 7", 1, 1, true, true, true},
    {EngineOrder::WaveOut, "waveout", "waveOut", 2, 2, false, true, false},
}};

/// Null when no engine has that word.
constexpr const EngineFacts* EngineFactsOf(std::string_view Word) {
    for (const EngineFacts& Each : AllEngineFacts)
        if (Each.Word == Word) return &Each;
    return nullptr;
}

/// Null when no engine answers DxObj so. Engines that answer the same differ in nothing that an
/// editor has to know.
constexpr const EngineFacts* EngineFactsOf(std::int32_t Answer) {
    for (const EngineFacts& Each : AllEngineFacts)
        if (Each.Answer == Answer) return &Each;
    return nullptr;
}

}  // namespace Tolvar
