#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "store/SampleRuns.h"

namespace Tolvar {

class BlockCarrBuffClass;
struct Dx9CallbackFrm;
struct TimerFrm;

/// The samples of the double buffer: elements 1..Count(), signed 16-bit. The storage stays where
/// it is until Renew, because a device may read a segment in place while the other is filled.
class StreamBuffer {
  public:
    bool Exists() const { return Storage != nullptr; }
    std::int32_t Count() const { return Elements; }

    /// Makes it Count zeros, 0 or more. std::bad_alloc leaves it as it was. The pages come zeroed
    /// from the system, so an absurdly large buffer costs nothing until it is filled.
    void Renew(std::int32_t Count) {
        auto* Fresh = std::calloc(static_cast<std::size_t>(Count) + 1, sizeof(std::int16_t));
        if (Fresh == nullptr) throw std::bad_alloc();
        Storage.reset(static_cast<std::int16_t*>(Fresh));
        Elements = Count;
    }

    /// The address of element Index, 1 <= Index <= Count() + 1 (the end); it must exist.
    std::int16_t* At(std::int32_t Index) { return Storage.get() + Index; }

  private:
    struct FreeStorage {
        void operator()(std::int16_t* Samples) const { std::free(Samples); }
    };
    std::unique_ptr<std::int16_t, FreeStorage> Storage;  // element 0 is never used
    std::int32_t Elements = 0;
};

/// The one set of variables that the player object, the stream fill, the engines and the carriers
/// of an apartment share. Frames and positions are 1-based and counted from the wave's start.
/// Apartment's thread only.
struct PlayerState {
    // The wave, set by the hand-over.
    std::int32_t FmtBits = 0;     ///< bits per sample as handed over: 8 or 16
    std::int32_t FmtChannal = 0;  ///< channels: 1 or 2
    std::int32_t FmtFriq = 0;     ///< Hz
    std::int32_t WaveNos = 0;     ///< frames; 0: no wave is loaded

    // Settings, set by the properties of the player object.
    bool LoopPlayON = false;
    float PlayTempoFor = 1.0F;         ///< factor
    float PlayTempoRev = 1.0F;         ///< factor
    std::int32_t MemorySizeToUse = 0;  ///< bytes of samples that the block store may keep
    std::string AppTmpDir;

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

    /// The timers that every engine of the apartment uses; made by the first engine.
    std::shared_ptr<TimerFrm> Timers;
    /// The DirectSound 9 engine's poll; made by the first such engine.
    std::shared_ptr<Dx9CallbackFrm> Dx9Callback;
};

}  // namespace Tolvar
