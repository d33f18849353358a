#include "waveplay/player/WaveFrames.h"

#include "store/BlocksFromBlkInLst.h"

namespace Tolvar {

WaveFrames::WaveFrames(const Wave& Whole) {
    const CheckedBlockList Left(Whole.Left.Values(), "left");
    Left_.BuffBlocksPutFresh(BlocksFromBlkInLst(Store_, Left));
    if (Whole.FmtChannal == 1) return;
    const CheckedBlockList Right(Whole.Right.Values(), "right");
    Right_.BuffBlocksPutFresh(BlocksFromBlkInLst(Store_, Right));
}

void WaveFrames::Read(std::int32_t From, std::span<std::int16_t> Into) {
    const bool IsStereo = Right_.WaveINos() > 0;
    const std::size_t Frames = IsStereo ? Into.size() / 2 : Into.size();
    Left_.QuickBuffGet(From + 1, Into.first(Frames));
    if (IsStereo) Right_.QuickBuffGet(From + 1, Into.last(Frames));
}

}  // namespace Tolvar
