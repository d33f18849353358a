#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "card/voices/SoundCard.h"
#include "platform/VirtualClock.h"
#include "platform/WaveOut.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

using namespace testing;

using Samples = std::vector<std::int16_t>;

inline Samples Numbers(int First, int Count) {
    Samples Made(static_cast<std::size_t>(Count));
    std::iota(Made.begin(), Made.end(), static_cast<std::int16_t>(First));
    return Made;
}

inline std::string BytesOf(const Samples& Some) {
    return {reinterpret_cast<const char*>(Some.data()), Some.size() * 2};
}

/// The header of those samples, which stay the caller's.
inline WAVEHDR HeaderOf(const Samples& Some) {
    return {reinterpret_cast<const char*>(Some.data()), static_cast<DWORD>(Some.size() * 2)};
}

/// A sound card on the virtual clock and what is heard of it.
struct CardRig {
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    ListeningSink& Heard = *new ListeningSink;  // the card's
    SoundCard Card{Home, {std::unique_ptr<Sink>(&Heard), nullptr}, SinkRate{}, Journal};
};

inline WAVEFORMATEX Pcm(int Channels, int Hz) {
    const auto Align = static_cast<WORD>(Channels * 2);
    const auto Rate = static_cast<DWORD>(Hz);
    return {WAVE_FORMAT_PCM, static_cast<WORD>(Channels), Rate, Rate * Align, Align, 16, 0};
}

}  // namespace Tolvar::Testing
