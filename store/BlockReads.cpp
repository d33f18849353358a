#include <algorithm>
#include <string>

#include "store/WoroFileBlockMod.h"

namespace Tolvar {

namespace {

// Samples; what a block loaded whole needed beyond it is given back.
constexpr std::size_t KeptScratch = 2 * 1024 * 1024;

}  // namespace

// Of FromPos in the block, which must hold Count samples from there on.
std::int64_t WoroFileBlockMod::OffsetIn(std::int32_t Blk, std::int64_t FromPos,
                                        std::int64_t Count) const {
    const BlockRec& Block = Blocks_.At(Blk);
    const std::int64_t Offset = FromPos - Block.BlkStartPos;
    if (Block.BlkType == BlkFree) {
        Box_.Show("Error - A block can not be read for quick buffer");
    } else if (Offset < 0 || Offset + Count > Block.BlkLen) {
        throw RuntimeFailure(FailureKind::Input, "Block " + std::to_string(Blk) + " of " +
                                                     std::to_string(Block.BlkLen) +
                                                     " samples from position " +
                                                     std::to_string(Block.BlkStartPos) +
                                                     " on does not hold " + std::to_string(Count) +
                                                     " from " + std::to_string(FromPos) + " on");
    }
    return Offset;
}

void WoroFileBlockMod::BlockRead(std::int32_t Blk, std::int64_t FromPos,
                                 std::span<std::int16_t> Into) {
    const std::int64_t Offset = OffsetIn(Blk, FromPos, std::ssize(Into));
    if (Into.empty()) return;
    const BlockRec& Block = Blocks_.At(Blk);
    if (InMemory(Block.BlkType)) {
        std::copy_n(Block.BlkData.get() + Offset, Into.size(), Into.begin());
    } else if (const FilePlace Place = OpenPlace(Block, Offset); Place.From == nullptr) {
        std::ranges::fill(Into, std::int16_t{0});
    } else if (Place.Layout.IsPlain()) {
        Place.From->Read(Place.BytePos, std::as_writable_bytes(Into));
    } else {
        ReadConverted(Place, Into);
    }
}

void WoroFileBlockMod::BlockRun(std::int32_t Blk, std::int64_t FromPos, std::int64_t Count,
                                SampleRuns& Runs, const SampleRun* Beside) {
    const std::int64_t Offset = OffsetIn(Blk, FromPos, Count);
    const BlockRec& Block = Blocks_.At(Blk);
    SampleRun Run{.Count = Count};
    if (InMemory(Block.BlkType)) {
        Run.From = reinterpret_cast<const std::byte*>(Block.BlkData.get() + Offset);
    } else if (const FilePlace Place = OpenPlace(Block, Offset); Place.From != nullptr) {
        Run.Layout = Place.Layout;
        Run.OrgSlot = Block.BlkType == BlkOrgFile ? Block.BlkFileNo : 0;
        Run.BytePos = Place.BytePos;
        const bool Shared = Run.OrgSlot != 0 && Beside != nullptr && ShareRun(Place, *Beside, Run);
        if (!Shared) ReadRun(Place, Runs, Run);
    }
    Runs.Add(Run);
}

void WoroFileBlockMod::ReadRun(const FilePlace& Place, SampleRuns& Runs, SampleRun& Run) {
    const auto Bytes = static_cast<std::size_t>(Place.Layout.SpanBytes(Run.Count));
    const auto Room = Runs.Room(Bytes + sizeof(std::int16_t));
    Place.From->Read(Place.BytePos, Room.first(Bytes));
    Run.From = Room.data();
    Run.Behind = Room.data() + Bytes;
}

// Run is of the original file that is open. When Beside was read from the same frames, its bytes
// hold this channel as well, except perhaps its last sample.
bool WoroFileBlockMod::ShareRun(const FilePlace& Place, const SampleRun& Beside, SampleRun& Run) {
    const std::int64_t Shift = Place.BytePos - Beside.BytePos;
    const std::int64_t SampleBytes = Place.Layout.Bits / 8;
    if (Beside.OrgSlot != Run.OrgSlot || Beside.Count != Run.Count) return false;
    if (Shift == SampleBytes && Place.Layout.Channels == 2 && Beside.Behind != nullptr) {
        try {
            const std::int64_t Missing = Beside.BytePos + Place.Layout.SpanBytes(Run.Count);
            Place.From->Read(Missing, {Beside.Behind, static_cast<std::size_t>(SampleBytes)});
        } catch (const RuntimeFailure&) {
            OrgFileOpenNo(Run.OrgSlot);  // the read of the whole run is to tell what is wrong
            return false;
        }
    } else if (Shift != 0) {
        return false;
    }
    Run.From = Beside.From + Shift;
    return true;
}

WoroFileBlockMod::FilePlace WoroFileBlockMod::OpenPlace(const BlockRec& Block,
                                                        std::int64_t Offset) {
    FilePlace Place;
    const bool Original = Block.BlkType == BlkOrgFile;
    if (Original) {
        const OrgFileRec& Rec = OrgFiles_.At(Block.BlkFileNo);
        Place.Layout = {Rec.OrgChannels, Rec.OrgBits};
        OrgFileOpenNo(Block.BlkFileNo);
    } else if (Block.BlkType == BlkFile) {
        WorkFileOpenNo(Block.BlkFileNo);
    } else {
        return Place;
    }
    if (!Place.Layout.IsKnown()) return Place;
    Place.BytePos = Block.BlkFilePos + Offset * Place.Layout.FrameBytes();
    if (Place.BytePos < 1) {
        throw RuntimeFailure(FailureKind::File,
                             (Original ? OrgFiles_.At(Block.BlkFileNo).OrgFileName
                                       : WorkFiles_.At(Block.BlkFileNo).WorkFileName) +
                                 ": there is no byte position " + std::to_string(Place.BytePos));
    }
    Place.From = Original ? &OrgOpen_ : &WorkOpen_;
    return Place;
}

void WoroFileBlockMod::ReadConverted(const FilePlace& Place, std::span<std::int16_t> Into) {
    const auto Bytes = static_cast<std::size_t>(Place.Layout.SpanBytes(std::ssize(Into)));
    const std::size_t Words = (Bytes + 1) / 2;
    if (Scratch_.size() < Words) Scratch_.resize(Words);
    const auto Raw = std::as_writable_bytes(std::span(Scratch_)).first(Bytes);
    Place.From->Read(Place.BytePos, Raw);
    SamplesFromFile(Place.Layout, Raw.data(), Into);
    if (Scratch_.size() > KeptScratch) Scratch_ = {};
}

}  // namespace Tolvar
