#include <algorithm>
#include <string>

#include "store/WoroFileBlockMod.h"

namespace Tolvar {

namespace {

// Samples; what a block loaded whole needed beyond it is given back.
constexpr std::size_t KeptScratch = 2 * 1024 * 1024;

}  // namespace

void WoroFileBlockMod::BlockRead(std::int32_t Blk, std::int64_t FromPos,
                                 std::span<std::int16_t> Into) {
    const BlockRec& Block = Blocks.At(Blk);
    const std::int64_t Offset = FromPos - Block.BlkStartPos;
    const auto Count = static_cast<std::int64_t>(Into.size());
    if (Block.BlkType == BlkFree) {
        Box.Show("Error - A block can not be read for quick buffer");
    } else if (Offset < 0 || Offset + Count > Block.BlkLen) {
        throw RuntimeFailure(FailureKind::Input, "Block " + std::to_string(Blk) + " of " +
                                                     std::to_string(Block.BlkLen) +
                                                     " samples from position " +
                                                     std::to_string(Block.BlkStartPos) +
                                                     " on does not hold " + std::to_string(Count) +
                                                     " from " + std::to_string(FromPos) + " on");
    }
    if (Into.empty()) return;
    if (InMemory(Block.BlkType)) {
        std::copy_n(Block.BlkData.get() + Offset, Count, Into.begin());
    } else if (Block.BlkType == BlkFile || Block.BlkType == BlkOrgFile) {
        ReadFromFile(Block, Offset, Into);
    } else {
        std::ranges::fill(Into, std::int16_t{0});
    }
}

void WoroFileBlockMod::ReadFromFile(const BlockRec& Block, std::int64_t Offset,
                                    std::span<std::int16_t> Into) {
    const bool Original = Block.BlkType == BlkOrgFile;
    SampleLayout Layout = WorkFileLayout;
    if (Original) {
        const OrgFileRec& Rec = OrgFiles.At(Block.BlkFileNo);
        Layout = {Rec.OrgChannels, Rec.OrgBits};
        OrgFileOpenNo(Block.BlkFileNo);
    } else {
        WorkFileOpenNo(Block.BlkFileNo);
    }
    if (!Layout.IsKnown()) {
        std::ranges::fill(Into, std::int16_t{0});
        return;
    }
    const std::int64_t BytePos = Block.BlkFilePos + Offset * Layout.FrameBytes();
    if (BytePos < 1) {
        throw RuntimeFailure(FailureKind::File,
                             (Original ? OrgFiles.At(Block.BlkFileNo).OrgFileName
                                       : WorkFiles.At(Block.BlkFileNo).WorkFileName) +
                                 ": there is no byte position " + std::to_string(BytePos));
    }
    ReadSpan(Original ? OrgOpen : WorkOpen, Layout, BytePos, Into);
}

void WoroFileBlockMod::ReadSpan(OpenFile& From, SampleLayout Layout, std::int64_t BytePos,
                                std::span<std::int16_t> Into) {
    if (Layout.IsPlain()) {
        From.Read(BytePos, std::as_writable_bytes(Into));
        return;
    }
    const auto Bytes =
        static_cast<std::size_t>(Layout.SpanBytes(static_cast<std::int64_t>(Into.size())));
    const std::size_t Words = (Bytes + 1) / 2;
    if (Scratch.size() < Words) Scratch.resize(Words);
    From.Read(BytePos, std::as_writable_bytes(std::span(Scratch)).first(Bytes));
    SamplesFromFile(Layout, Scratch, Into);
    if (Scratch.size() > KeptScratch) Scratch = {};
}

}  // namespace Tolvar
