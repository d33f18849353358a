#pragma once

#include <cstdint>
#include <memory>

#include "state/StreamBuffer.h"
#include "store/SampleRuns.h"
#include "store/StoreSettings.h"

namespace Tolvar {

class BlockCarrBuffClass;

/// The one set of variables that the player object, the stream fill, the engines and the carriers
/// of an apartment share. Frames and positions are 1-based and counted from the wave's start.
/// Apartment's thread only.
struct PlayerState : StoreSettings {
    // The wave, set by the hand-over.
    std::int32_t FmtBits = 0;     ///< bits per sample as handed over: 8 or 16
    std::int32_t FmtChannal = 0;  ///< channels: 1 or 2
    std::int32_t FmtFriq = 0;     ///< Hz
    std::int32_t WaveNos = 0;     ///< frames; 0: no wave is loaded

    // Settings, set by the properties of the player object; those of the store are inherited.
    bool LoopPlayON = false;
    float PlayTempoFor = 1.0F;  ///< factor
    float PlayTempoRev = 1.0F;  ///< factor

    // The sample source.
    std::shared_ptr<BlockCarrBuffClass> BlkCarrL;
    std::shared_ptr<BlockCarrBuffClass> BlkCarrR;  ///< holds blocks only for a stereo wave

    // The current run.
    std::int32_t PlayDirection = 0;     ///< +1 forward, -1 reverse
    std::int32_t PlayCurPos = 0;        ///< frame, from the wave's start in either direction
    std::int32_t PlayStartOff = 0;      ///< frames behind the playback point when the run began
    std::int32_t PlayFriq = 0;          ///< Hz, FmtFriq times the tempo of the direction
    std::int32_t PlayRunningState = 0;  ///< 0 stopped, 1 playing, 2 playing in a loop, 3 paused

    // The double buffer, set together by an engine's CreateSoundBuffer.
    std::int32_t SegFrames = 0;
    std::int32_t BuffFrames = 0;
    std::int32_t SegSamples = 0;
    std::int32_t BuffSamples = 0;
    std::int32_t SegBytes = 0;
    std::int32_t BuffBytes = 0;

    // The stream fill.
    std::int32_t FillNextPos = 0;  ///< next frame to fill, from the start or (reverse) the end
    std::int32_t SegFilled = 0;    ///< frames that the last fill delivered
    std::int32_t SegFilledBytes = 0;
    StreamBuffer StreamBuff;
    std::int32_t LastSegMs = 0;  ///< ms of the last, partial segment; 0 before it, 1 after it
    bool FillEnded = false;
    std::int32_t StopTimerMark = 0;  ///< ms

    // Working arrays of the stream fill, kept so that a fill allocates nothing.
    SampleRuns QL;
    SampleRuns QR;
};

}  // namespace Tolvar
