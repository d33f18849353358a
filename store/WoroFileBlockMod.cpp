#include "store/WoroFileBlockMod.h"

#include <algorithm>

#include "platform/Checked.h"

namespace Tolvar {

WoroFileBlockMod::WoroFileBlockMod(Files& TheFiles, MessageBox& TheBox,
                                   const StoreSettings& TheSettings)
    : FileLayer(TheFiles), Box(TheBox), Settings(TheSettings), OwnFiles(TheFiles) {}

std::int32_t WoroFileBlockMod::NextUseStamp() {
    Clock = CheckedAdd(Clock, 1);
    return Clock;
}

std::int32_t WoroFileBlockMod::OrgFileAdd(const std::string& Name, std::int32_t Channels,
                                          std::int32_t Bits) {
    const std::int32_t Open = OrgFileOpen();
    if (Open != 0 && OrgFiles.At(Open).OrgUseCnt == 0) OrgOpen.Close();
    const std::int32_t Slot = OrgFiles.FirstFree();
    OrgFiles.Rename(Slot, Name);
    OrgFileRec& Rec = OrgFiles.At(Slot);
    Rec.OrgChannels = Channels;
    Rec.OrgBits = Bits;
    return Slot;
}

std::int32_t WoroFileBlockMod::WorkFileAdd() {
    return WorkFileAdd(OwnFiles.NextName(Settings.AppTmpDir));
}

std::int32_t WoroFileBlockMod::WorkFileAdd(const std::string& Name) {
    const std::int32_t Slot = WorkFiles.FirstFree();
    WorkFileCloseNo(Slot);
    WorkFiles.Rename(Slot, Name);
    return Slot;
}

void WoroFileBlockMod::OrgFileOpenNo(std::int32_t Slot) {
    OrgOpen.Open(FileLayer, Slot, OrgFiles.At(Slot).OrgFileName);
}

void WoroFileBlockMod::WorkFileOpenNo(std::int32_t Slot) {
    WorkOpen.Open(FileLayer, Slot, WorkFiles.At(Slot).WorkFileName);
}

void WoroFileBlockMod::FilesForget() noexcept {
    while (const std::int32_t Slot = WorkFiles.FirstNamedFree()) {
        WorkFileCloseNo(Slot);
        WorkFiles.Rename(Slot, {});
    }
    while (const std::int32_t Slot = OrgFiles.FirstNamedFree())
        ForgetOrgFile(Slot);
}

void WoroFileBlockMod::ForgetOrgFile(std::int32_t Slot) {
    OrgFileCloseNo(Slot);
    OrgFiles.Rename(Slot, {});
}

void WoroFileBlockMod::OrgFileRelease(std::int32_t Slot) {
    const OrgFileRec& Rec = OrgFiles.At(Slot);
    for (std::int32_t Blk = 1; Blk <= BlockCnt() && Rec.OrgUseCnt > 0; ++Blk) {
        const BlockRec& Reader = Blocks.At(Blk);
        if (Reader.BlkType == BlkOrgFile && Reader.BlkFileNo == Slot) BlockLoad(Blk);
    }
    OrgFileCloseNo(Slot);
    if (Rec.OrgUseCnt == 0) OrgFiles.Rename(Slot, {});
}

bool WoroFileBlockMod::BlocksUse(const std::string& Name) const {
    const auto IsName = [&](const std::string& Other) { return FileLayer.SameFile(Name, Other); };
    for (std::int32_t Slot = 1; Slot <= OrgFileCnt(); ++Slot) {
        if (OrgFile(Slot).OrgUseCnt > 0 && IsName(OrgFile(Slot).OrgFileName)) return true;
    }
    for (std::int32_t Slot = 1; Slot <= WorkFileCnt(); ++Slot) {
        if (WorkFile(Slot).WorkUseCnt > 0 && IsName(WorkFile(Slot).WorkFileName)) return true;
    }
    return std::ranges::any_of(OwnFiles.Names(), IsName);
}

void WoroFileBlockMod::UseFileOf(std::int32_t Type, std::int32_t Slot) {
    if (Type == BlkOrgFile) OrgFiles.Use(Slot);
    if (Type != BlkFile && Type != BlkBoth) return;
    WorkFiles.Use(Slot);
    OwnFiles.SetSpare(WorkFiles.At(Slot).WorkFileName, false);
}

void WoroFileBlockMod::UnuseWorkFile(std::int32_t Slot) {
    if (WorkFiles.Unuse(Slot)) OwnFiles.SetSpare(WorkFiles.At(Slot).WorkFileName, true);
}

std::unique_ptr<File> WoroFileBlockMod::OpenOwnFile(std::int32_t Slot) {
    for (;;) {
        const std::string& Name = WorkFiles.At(Slot).WorkFileName;
        // A name that the editor uses is not ours, even while its file is missing.
        if (OwnFiles.Holds(Name) || WorkFiles.Find(Name) == 0) {
            if (auto Own = OwnFiles.OpenForWriting(Name)) return Own;
        }
        WorkFiles.Rename(Slot, OwnFiles.NextName(Settings.AppTmpDir));
    }
}

std::int32_t WoroFileBlockMod::WriteToWorkFile(std::span<const std::int16_t> Samples) {
    const std::int32_t Slot = WorkFileAdd();
    try {
        const auto Own = OpenOwnFile(Slot);
        Own->WriteAt(1, std::as_bytes(Samples));
        Own->Close();
        UseFileOf(BlkFile, Slot);
    } catch (...) {
        WorkFiles.Rename(Slot, {});
        throw;
    }
    return Slot;
}

}  // namespace Tolvar
