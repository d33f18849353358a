#include "waveplay/player/WaveFrames.h"

#include "host/PlayServer.h"
#include "store/BlockCarrBuffClass.h"
#include "waveplay/player/PlayRun.h"

namespace Tolvar {
namespace {

PlayServerOptions NeverHeard() {
    PlayServerOptions Setup;
    Setup.VirtualClock = true;  // its end waits for nobody
    return Setup;
}

}  // namespace

WaveFrames::WaveFrames(const Wave& Whole) : Silent_(NeverHeard()) {
    HandOver(Silent_.Port(), Whole);
}

void WaveFrames::Read(std::int32_t From, std::span<std::int16_t> Into) const {
    const PlayerState& State = Silent_.Inside()->State();
    const bool IsStereo = State.FmtChannal == 2;
    const std::size_t Frames = IsStereo ? Into.size() / 2 : Into.size();
    State.BlkCarrL->QuickBuffGet(From + 1, Into.first(Frames));
    if (IsStereo) State.BlkCarrR->QuickBuffGet(From + 1, Into.last(Frames));
}

}  // namespace Tolvar
