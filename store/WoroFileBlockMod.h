#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Files.h"
#include "platform/MessageBox.h"
#include "store/BlockRec.h"
#include "store/BlockTable.h"
#include "store/CarrierFile.h"
#include "store/FileTable.h"
#include "store/OpenFile.h"
#include "store/SampleCodec.h"
#include "store/SampleRuns.h"
#include "store/StoreSettings.h"
#include "store/WorkFilePool.h"

namespace Tolvar {

/// The block store of one server: the samples of the waves handed over, as blocks that lie in
/// memory, in work files, in original sound files or nowhere. Carriers hold their channels as
/// block numbers and must be gone before the store is. Apartment's thread only.
///
/// Every operation that fails (RuntimeFailure, or std::bad_alloc) leaves the tables consistent:
/// use counts, BuffMemUsed and the free records are those of the blocks that exist. Misuse that
/// the editor's user should see is shown in the message box, and the operation then goes on.
class WoroFileBlockMod {
  public:
    /// Settings stays the caller's and is read when it is needed.
    WoroFileBlockMod(Files& FileLayer, MessageBox& Box, const StoreSettings& Settings);
    /// Closes what is open and deletes the work files that the store made itself; never throws.
    ~WoroFileBlockMod() = default;
    WoroFileBlockMod(const WoroFileBlockMod&) = delete;
    WoroFileBlockMod& operator=(const WoroFileBlockMod&) = delete;

    // The tables, to be read. A number outside a table is RuntimeFailure(Input).
    std::int32_t BlockCnt() const { return Blocks_.Count(); }
    std::int32_t OrgFileCnt() const { return OrgFiles_.Count(); }
    std::int32_t WorkFileCnt() const { return WorkFiles_.Count(); }
    std::int32_t OrgFileOpen() const { return OrgOpen_.Slot(); }        ///< slot, 0 = none
    std::int32_t WorkFileOpen() const { return WorkOpen_.Slot(); }      ///< slot, 0 = none
    std::int32_t BuffMemUsed() const { return Blocks_.BuffMemUsed(); }  ///< bytes
    std::int32_t UseClock() const { return Clock_; }
    std::int32_t MemorySizeToUse() const { return Settings_.MemorySizeToUse; }  ///< bytes
    const BlockRec& Block(std::int32_t Blk) const { return Blocks_.At(Blk); }
    const OrgFileRec& OrgFile(std::int32_t Slot) const { return OrgFiles_.At(Slot); }
    const WorkFileRec& WorkFile(std::int32_t Slot) const { return WorkFiles_.At(Slot); }

    // Table-level operations.

    /// Overflow after 2^31 - 1 uses.
    std::int32_t NextUseStamp();
    /// A slot for an original file; free again until a block is pointed at it.
    std::int32_t OrgFileAdd(const std::string& Name, std::int32_t Channels, std::int32_t Bits);
    /// A slot for a work file of the store's own, in AppTmpDir; made when first written.
    std::int32_t WorkFileAdd();
    /// A slot for a work file that the editor keeps; the store never writes or deletes it.
    std::int32_t WorkFileAdd(const std::string& Name);
    /// The first slot in use of that name, ignoring case; 0 when there is none.
    std::int32_t OrgFileFind(std::string_view Name) const { return OrgFiles_.Find(Name); }
    std::int32_t WorkFileFind(std::string_view Name) const { return WorkFiles_.Find(Name); }
    /// RuntimeFailure(File) when it cannot be opened; then no file of that kind is open.
    void OrgFileOpenNo(std::int32_t Slot);
    void OrgFileCloseNo(std::int32_t Slot) noexcept { OrgOpen_.CloseIf(Slot); }
    void WorkFileOpenNo(std::int32_t Slot);
    void WorkFileCloseNo(std::int32_t Slot) noexcept { WorkOpen_.CloseIf(Slot); }
    /// Closes and forgets the names of the files that no block uses any more.
    void FilesForget() noexcept;

    // Block operations. Len is samples, 0 or more.

    /// On failure, also of the eviction that it may start, no block is made.
    std::int32_t BlockNew(std::int32_t Len, std::int32_t Type);
    /// Touches no file but to close it; throws only for a number that is no block's.
    void BlockFree(std::int32_t Blk);
    /// The copy is the caller's.
    std::int32_t BlockCopy(std::int32_t Blk);
    /// Head and tail, the caller's; D is the first position of the tail. {0, 0} when none is made.
    /// Blk is left whole.
    std::pair<std::int32_t, std::int32_t> BlockBreak(std::int32_t Blk, std::int32_t D);
    /// The block stays loaded when only the eviction that follows fails.
    void BlockLoad(std::int32_t Blk);
    void BlockToBuff(std::int32_t Blk);
    void BlockToFile(std::int32_t Blk);
    void BuffMemCheck();
    void OrgFileRelease(std::int32_t Slot);

    /// Fills Into with the samples from FromPos on, a position in the channel; all must lie within
    /// the block, RuntimeFailure(Input) otherwise. Neither stamps nor loads the block.
    void BlockRead(std::int32_t Blk, std::int64_t FromPos, std::span<std::int16_t> Into);

    /// Adds those samples to Runs without moving them, as BlockRead otherwise; Count is 1 or more.
    /// Beside is a run of the same length that was read just now, or null: bytes of an original
    /// file that are there are not read again.
    void BlockRun(std::int32_t Blk, std::int64_t FromPos, std::int64_t Count, SampleRuns& Runs,
                  const SampleRun* Beside);

    // What carriers and the hand-over do to a block of their own.

    void ShowError(std::string_view Text) { Box_.Show(Text); }
    void BlockStamp(std::int32_t Blk);
    void BlockStartLet(std::int32_t Blk, std::int32_t StartPos) { Blocks_.SetStart(Blk, StartPos); }
    /// One sample of a block in memory, which then is in no file (BlkBuff).
    void BlockSampleLet(std::int32_t Blk, std::int64_t Offset, std::int16_t NewVal);

    /// A block as the editor describes it: BlkSilent (Slot 0), or BlkFile or BlkOrgFile in Slot.
    std::int32_t BlockHandOver(const Extent& Where, BlkTypes Type, std::int32_t Slot);

    // What the carriers that keep a file of their own share with the blocks.

    Files& Disk() { return FileLayer_; }
    /// RuntimeFailure(File) when AppTmpDir is "".
    const std::string& WorkFolder() const { return RequireFolder(Settings_.AppTmpDir); }
    CarrierFiles& FilesOfCarriers() { return OfCarriers_; }
    /// True when blocks read from the file Name, or the store writes its own there.
    bool BlocksUse(const std::string& Name) const;

  private:
    std::int32_t BlockNewBuff(std::int32_t Len);
    std::int32_t BlockNewFile(std::int32_t Len);
    std::int32_t BlockNewUnmade(std::int32_t Len, std::int32_t Type);
    std::int32_t BlockCopyInMemory(std::int32_t Blk);
    std::int32_t BlockCopyPlain(std::int32_t Blk);
    std::pair<std::int32_t, std::int32_t> BreakInMemory(std::int32_t Blk, std::int32_t D);
    std::pair<std::int32_t, std::int32_t> BreakInFile(std::int32_t Blk, std::int32_t D);
    void ShareWorkFile(std::int32_t Blk, std::int32_t Slot, std::int32_t FilePos);
    void LoadFresh(std::int32_t Blk);
    std::int32_t WriteToWorkFile(std::span<const std::int16_t> Samples);
    std::unique_ptr<File> OpenOwnFile(std::int32_t Slot);
    /// Where a block has its samples in a file, which is open.
    struct FilePlace {
        OpenFile* From = nullptr;  ///< null: nowhere, or in a layout that reads as silence
        SampleLayout Layout = WorkFileLayout;
        std::int64_t BytePos = 0;
    };
    std::int64_t OffsetIn(std::int32_t Blk, std::int64_t FromPos, std::int64_t Count) const;
    FilePlace OpenPlace(const BlockRec& Block, std::int64_t Offset);
    static void ReadRun(const FilePlace& Place, SampleRuns& Runs, SampleRun& Run);
    bool ShareRun(const FilePlace& Place, const SampleRun& Beside, SampleRun& Run);
    void ReadConverted(const FilePlace& Place, std::span<std::int16_t> Into);
    void UseFileOf(std::int32_t Type, std::int32_t Slot);
    void UnuseWorkFile(std::int32_t Slot);
    void ForgetOrgFile(std::int32_t Slot);

    Files& FileLayer_;
    MessageBox& Box_;
    const StoreSettings& Settings_;

    std::int32_t Clock_ = 0;
    BlockTable Blocks_;
    FileTable<OrgFileRec> OrgFiles_;
    FileTable<WorkFileRec> WorkFiles_;
    WorkFilePool OwnFiles_;
    CarrierFiles OfCarriers_;
    OpenFile OrgOpen_;
    OpenFile WorkOpen_;
    std::vector<std::int16_t> Scratch_;  // file bytes on their way through the conversion
};

}  // namespace Tolvar
