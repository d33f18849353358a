#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/MessageBox.h"
#include "platform/posix/PosixFiles.h"
#include "store/BlockCarrBuffClass.h"
#include "store/StoreSettings.h"
#include "store/WoroFileBlockMod.h"
#include "waveplay/wave/Pieces.h"

namespace Tolvar {

/// Reads the frames of a wave, wherever it is played, through a block store of its own over the
/// same block lists. One thread.
class WaveFrames {
  public:
    /// RuntimeFailure when the block lists are refused. Whole may go afterwards, but what its
    /// lists name must stay.
    explicit WaveFrames(const Wave& Whole);
    WaveFrames(const WaveFrames&) = delete;
    WaveFrames& operator=(const WaveFrames&) = delete;

    /// Into has one sample for each channel of a frame; From counts from 0 and what is asked for
    /// lies inside the wave. All left samples come first, then all right ones. RuntimeFailure when
    /// a file cannot be read.
    void Read(std::int32_t From, std::span<std::int16_t> Into);

  private:
    // What the store would show is shown by the player's own.
    struct NoBox : MessageBox {
        void Show(std::string_view /*Text*/) override {}
    };

    PosixFiles Files_;
    NoBox Box_;
    StoreSettings Settings_;
    WoroFileBlockMod Store_{Files_, Box_, Settings_};
    BlockCarrBuffClass Left_{Store_};
    BlockCarrBuffClass Right_{Store_};  // empty for a mono wave
};

}  // namespace Tolvar
