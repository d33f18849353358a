#include "store/WoroFileBlockMod.h"

#include <algorithm>

#include "platform/Checked.h"

namespace Tolvar {

WoroFileBlockMod::WoroFileBlockMod(Files& Files, MessageBox& Box, const StoreSettings& Settings)
    : FileLayer_(Files), Box_(Box), Settings_(Settings), OwnFiles_(Files) {}

std::int32_t WoroFileBlockMod::NextUseStamp() {
    Clock_ = CheckedAdd(Clock_, 1);
    return Clock_;
}

std::int32_t WoroFileBlockMod::OrgFileAdd(const std::string& Name, std::int32_t Channels,
                                          std::int32_t Bits) {
    const std::int32_t Open = OrgFileOpen();
    if (Open != 0 && OrgFiles_.At(Open).OrgUseCnt == 0) OrgOpen_.Close();
    const std::int32_t Slot = OrgFiles_.FirstFree();
    OrgFiles_.Rename(Slot, Name);
    OrgFileRec& Rec = OrgFiles_.At(Slot);
    Rec.OrgChannels = Channels;
    Rec.OrgBits = Bits;
    return Slot;
}

std::int32_t WoroFileBlockMod::WorkFileAdd() {
    return WorkFileAdd(OwnFiles_.NextName(Settings_.AppTmpDir));
}

std::int32_t WoroFileBlockMod::WorkFileAdd(const std::string& Name) {
    const std::int32_t Slot = WorkFiles_.FirstFree();
    WorkFileCloseNo(Slot);
    WorkFiles_.Rename(Slot, Name);
    return Slot;
}

void WoroFileBlockMod::OrgFileOpenNo(std::int32_t Slot) {
    OrgOpen_.Open(FileLayer_, Slot, OrgFiles_.At(Slot).OrgFileName);
}

void WoroFileBlockMod::WorkFileOpenNo(std::int32_t Slot) {
    WorkOpen_.Open(FileLayer_, Slot, WorkFiles_.At(Slot).WorkFileName);
}

void WoroFileBlockMod::FilesForget() noexcept {
    while (const std::int32_t Slot = WorkFiles_.FirstNamedFree()) {
        WorkFileCloseNo(Slot);
        WorkFiles_.Rename(Slot, {});
    }
    while (const std::int32_t Slot = OrgFiles_.FirstNamedFree())
        ForgetOrgFile(Slot);
}

void WoroFileBlockMod::ForgetOrgFile(std::int32_t Slot) {
    OrgFileCloseNo(Slot);
    OrgFiles_.Rename(Slot, {});
}

void WoroFileBlockMod::OrgFileRelease(std::int32_t Slot) {
    const OrgFileRec& Rec = OrgFiles_.At(Slot);
    for (std::int32_t Blk = 1; Blk <= BlockCnt() && Rec.OrgUseCnt > 0; ++Blk) {
        const BlockRec& Reader = Blocks_.At(Blk);
        if (Reader.BlkType == BlkOrgFile && Reader.BlkFileNo == Slot) BlockLoad(Blk);
    }
    OrgFileCloseNo(Slot);
    if (Rec.OrgUseCnt == 0) OrgFiles_.Rename(Slot, {});
}

bool WoroFileBlockMod::BlocksUse(const std::string& Name) const {
    const auto IsName = [&](const std::string& Other) { return FileLayer_.SameFile(Name, Other); };
    for (std::int32_t Slot = 1; Slot <= OrgFileCnt(); ++Slot) {
        if (OrgFile(Slot).OrgUseCnt > 0 && IsName(OrgFile(Slot).OrgFileName)) return true;
    }
    for (std::int32_t Slot = 1; Slot <= WorkFileCnt(); ++Slot) {
        if (WorkFile(Slot).WorkUseCnt > 0 && IsName(WorkFile(Slot).WorkFileName)) return true;
    }
    return std::ranges::any_of(OwnFiles_.Names(), IsName);
}

void WoroFileBlockMod::UseFileOf(std::int32_t Type, std::int32_t Slot) {
    if (Type == BlkOrgFile) OrgFiles_.Use(Slot);
    if (Type != BlkFile && Type != BlkBoth) return;
    WorkFiles_.Use(Slot);
    OwnFiles_.SetSpare(WorkFiles_.At(Slot).WorkFileName, false);
}

void WoroFileBlockMod::UnuseWorkFile(std::int32_t Slot) {
    if (WorkFiles_.Unuse(Slot)) OwnFiles_.SetSpare(WorkFiles_.At(Slot).WorkFileName, true);
}

std::unique_ptr<File> WoroFileBlockMod::OpenOwnFile(std::int32_t Slot) {
    for (;;) {
        const std::string& Name = WorkFiles_.At(Slot).WorkFileName;
        // A name that the editor uses is not ours, even while its file is missing.
        if (OwnFiles_.Holds(Name) || WorkFiles_.Find(Name) == 0) {
            if (auto Own = OwnFiles_.OpenForWriting(Name)) return Own;
        }
        WorkFiles_.Rename(Slot, OwnFiles_.NextName(Settings_.AppTmpDir));
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
        WorkFiles_.Rename(Slot, {});
        throw;
    }
    return Slot;
}

}  // namespace Tolvar
