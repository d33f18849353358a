#include "store/FileCarrBuffClass.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/Checked.h"
#include "store/OnFailure.h"

namespace Tolvar {

namespace {

constexpr std::string_view OutOfLimit = "Out of limit - Error";
constexpr std::int32_t LeastBuffLen = 262144;
constexpr std::int32_t MostBytes = std::numeric_limits<std::int32_t>::max();

// A twentieth of the budget's bytes, in whole fours of samples.
std::int32_t BuffLenFor(std::int32_t MemorySizeToUse) {
    return std::max(LeastBuffLen, Round32(MemorySizeToUse / 20.0) / 4 * 4);
}

std::string WithBlank(std::int32_t Number) {
    return (Number < 0 ? "" : " ") + std::to_string(Number);
}

void RefuseNegative(std::int32_t Size) {
    if (Size >= 0) return;
    throw RuntimeFailure(FailureKind::Input,
                         "A channel cannot be " + std::to_string(Size) + " samples long");
}

std::int32_t ChannelBytes(File& From, const std::string& Name) {
    const std::int64_t Bytes = From.Length();
    if (Bytes >= 2 && Bytes <= MostBytes) return static_cast<std::int32_t>(Bytes);
    throw RuntimeFailure(FailureKind::Input, Name + " is " + std::to_string(Bytes) +
                                                 " bytes long; a channel has 2 to " +
                                                 std::to_string(MostBytes));
}

}  // namespace

FileCarrBuffClass::FileCarrBuffClass(WoroFileBlockMod& TheStore, const Clock& TimeOfDay)
    : Store(TheStore),
      Time(TimeOfDay),
      Known(TheStore.FilesOfCarriers(), Own),
      BuffLen(BuffLenFor(TheStore.MemorySizeToUse())) {
    Own = MakeTempFile(true);
    Samples = 1;
}

FileCarrBuffClass::~FileCarrBuffClass() {
    try {
        KillFileIfAny(Own);
    } catch (...) {  // nobody is left to tell; the file stays in its folder
        return;
    }
}

void FileCarrBuffClass::WaveSize(std::int32_t NewVal) {
    RefuseNegative(NewVal);
    Samples = NewVal;
}

// The file.

const std::string& FileCarrBuffClass::KeptName() const {
    if (Own.Kept) return Own.Name;
    throw RuntimeFailure(FailureKind::File, Own.Name.empty()
                                                ? "The carrier has no file"
                                                : "The carrier has not made its file " + Own.Name);
}

CarrierFile FileCarrBuffClass::MakeTempFile(bool Create) const {
    const std::string Start = Store.WorkFolder() + "\\tm";
    const std::int32_t Second = Round32(Time.SecondsSinceMidnight());
    for (std::int32_t Number = CheckedAdd(Second, 1);; Number = CheckedAdd(Number, 1)) {
        const std::string Name = Start + std::to_string(Number) + ".tmp";
        const auto HasIt = [&](const CarrierFile& Each) { return Each.Name == Name; };
        if (Store.FilesOfCarriers().Any(HasIt)) continue;
        if (Create ? SampleFileMake(Store.Disk(), Name) : !Store.Disk().Exists(Name)) {
            return {Name, Create};
        }
    }
}

void FileCarrBuffClass::KillFileIfAny(const CarrierFile& Gone) {
    if (Gone.Kept && !Store.BlocksUse(Gone.Name)) Store.Disk().Delete(Gone.Name);
}

void FileCarrBuffClass::FileRelease() {
    FlushBuff();
    const bool Create = Samples == 0;
    Own = MakeTempFile(Create);
    if (!Create) return;
    Samples = 1;
    BuffDrop();
}

std::string FileCarrBuffClass::FileName1() {
    FlushBuff();
    return Own.Name;
}

void FileCarrBuffClass::FileName1(const std::string& NewName) {
    Files& Disk = Store.Disk();
    const auto Taken = Disk.Exists(NewName) ? OpenToTake(NewName) : nullptr;
    const std::int32_t Bytes = Taken ? ChannelBytes(*Taken, NewName) : 0;
    std::vector<std::int16_t> Loaded(static_cast<std::size_t>(std::min(BuffLen, Bytes / 2)));
    if (Taken) Taken->ReadAt(1, std::as_writable_bytes(std::span(Loaded)));

    CarrierFile Fresh;
    const OnFailure Unmake([&] {
        if (!OrgFile && Fresh.Kept) Disk.Delete(Fresh.Name);
    });
    if (!OrgFile) {
        Fresh = MakeTempFile(true);
        if (Taken) SampleFileCopy(*Taken, Bytes, Disk, Fresh.Name);
    } else if (Taken) {
        Fresh = {NewName, true};
    }
    KillFileIfAny(Own);

    Own = std::move(Fresh);
    Samples = Taken ? Bytes / 2 : Own.Kept ? 1 : 0;
    BuffDrop();
    BuffData = std::move(Loaded);
}

std::unique_ptr<File> FileCarrBuffClass::OpenToTake(const std::string& NewName) {
    Files& Disk = Store.Disk();
    if (Own.Kept && Disk.SameFile(NewName, Own.Name)) {
        throw RuntimeFailure(FailureKind::Input, NewName + " is the carrier's own file");
    }
    const auto HasIt = [&](const CarrierFile& Each) {
        return Each.Kept && Disk.SameFile(NewName, Each.Name);
    };
    if (OrgFile && (Store.BlocksUse(NewName) || Store.FilesOfCarriers().Any(HasIt))) {
        throw RuntimeFailure(FailureKind::Input, NewName + " holds samples that are in use");
    }
    return Disk.Open(NewName, FileAccess::Read);
}

// Its size.

void FileCarrBuffClass::ReDimSize(std::int32_t NewSz, bool DoInitilize) {
    RefuseNegative(NewSz);
    if (Samples < NewSz) {
        Grow(NewSz, DoInitilize);
    } else {
        Shrink(NewSz);
    }
}

SampleFileGrowth FileCarrBuffClass::Grow(std::int32_t NewSz, bool DoInitilize) {
    SampleFileGrowth Growth(Store.Disk(), KeptName(), Samples, NewSz);
    DoInitilize ? Growth.WriteAll(BuffLen) : Growth.WriteLast();
    Samples = NewSz;
    return Growth;
}

void FileCarrBuffClass::Shrink(std::int32_t NewSz) {
    const std::int64_t Kept = std::max(std::int64_t{NewSz} - ZeroPtr, std::int64_t{0});
    const auto Bytes = CheckedMul(2, NewSz);
    if (static_cast<std::int64_t>(BuffData.size()) > Kept) FlushBuff();
    // Nothing is written that the close could lose.
    Store.Disk().Open(KeptName(), FileAccess::Update)->SetLength(Bytes);
    Samples = NewSz;
    if (static_cast<std::int64_t>(BuffData.size()) > Kept) {
        BuffData.resize(static_cast<std::size_t>(Kept));
    }
}

// The buffer.

bool FileCarrBuffClass::BuffHolds(std::int32_t First, std::int32_t Last) const {
    return ZeroPtr < First && Last <= ZeroPtr + static_cast<std::int64_t>(BuffData.size());
}

std::int16_t* FileCarrBuffClass::BuffAt(std::int32_t WavPos) {
    return BuffData.data() + (std::int64_t{WavPos} - ZeroPtr - 1);
}

void FileCarrBuffClass::BuffDrop() noexcept {
    BuffData.clear();
    ZeroPtr = 0;
    BuffDirty = false;
}

void FileCarrBuffClass::FlushBuff() {
    if (!BuffDirty) return;
    SamplesWrite(Store.Disk(), KeptName(), ZeroPtr, BuffData);
    BuffDirty = false;
}

void FileCarrBuffClass::BuffLength(std::int32_t NewVal) {
    if (NewVal < 1) {
        throw RuntimeFailure(FailureKind::Input,
                             "A buffer cannot hold " + std::to_string(NewVal) + " samples");
    }
    MovePointer(0, NewVal);
}

void FileCarrBuffClass::MovePointer(std::int32_t NewZeroPtr, std::int32_t NewRange) {
    const std::int32_t Length = NewRange != 0 ? NewRange : BuffLen;
    if (!Own.Name.empty()) return BuffLoad(NewZeroPtr, Length);
    const std::int32_t Before = Samples;
    Own = MakeTempFile(Before == 0);
    if (Own.Kept) Samples = 1;
    const OnFailure Unmake([&] {
        Samples = Before;
        KillFileIfAny(std::exchange(Own, {}));
    });
    BuffLoad(NewZeroPtr, Length);
}

void FileCarrBuffClass::BuffLoad(std::int32_t NewZeroPtr, std::int32_t Length) {
    const std::int64_t Range = std::min<std::int64_t>(Length, std::int64_t{Samples} - NewZeroPtr);
    if (NewZeroPtr < 0 || Range < 1) {
        throw RuntimeFailure(FailureKind::Input, "A buffer of " + std::to_string(Length) +
                                                     " samples behind sample " +
                                                     std::to_string(NewZeroPtr) + " of " +
                                                     std::to_string(Samples) + " has none to hold");
    }
    FlushBuff();
    std::vector<std::int16_t> Fresh(static_cast<std::size_t>(Range));
    SamplesRead(Store.Disk(), KeptName(), NewZeroPtr, Fresh);
    BuffData = std::move(Fresh);
    ZeroPtr = NewZeroPtr;
    BuffLen = Length;
}

// The samples.

std::int16_t* FileCarrBuffClass::SampleAt(std::int32_t WavPos) {
    if (!BuffHolds(WavPos, WavPos)) {
        if (WavPos == 0) return &Sample0;
        if (WavPos < 1 || WavPos > Samples) {
            Store.ShowError(OutOfLimit);
            return nullptr;
        }
        MovePointer(WavPos - 1);
    }
    return BuffAt(WavPos);
}

std::int16_t FileCarrBuffClass::WaveLR(std::int32_t WavPos) {
    const std::int16_t* Found = SampleAt(WavPos);
    return Found != nullptr ? *Found : std::int16_t{0};
}

void FileCarrBuffClass::WaveLR(std::int32_t WavPos, std::int16_t NewVal) {
    std::int16_t* Found = SampleAt(WavPos);
    if (Found == nullptr) return;
    *Found = NewVal;
    if (WavPos != 0) BuffDirty = true;
}

void FileCarrBuffClass::BuffPut(std::int32_t WavPos, std::span<const std::int16_t> PutData) {
    const auto Count = Checked<std::int32_t>(static_cast<std::int64_t>(PutData.size()));
    if (Count < 1) return;
    if (WavPos < 1 || Count > BuffLen) {
        Store.ShowError(std::string(OutOfLimit) + "\r\n" + WithBlank(Count) + WithBlank(BuffLen) +
                        WithBlank(WavPos));
        return;
    }
    const std::int32_t Last = CheckedAdd(WavPos, Count - 1);
    const std::int32_t Before = Samples;
    std::optional<SampleFileGrowth> Growth;
    const OnFailure Shorten([&] {
        Samples = Before;
        if (Growth) Growth->Undo();
    });
    if (Last > Samples) Growth.emplace(Grow(Last, false));
    if (!BuffHolds(WavPos, Last)) MovePointer(WavPos - 1);
    std::ranges::copy(PutData, BuffAt(WavPos));
    BuffDirty = true;
}

void FileCarrBuffClass::BuffGet(std::int32_t WavPos, std::span<std::int16_t> GetData) {
    const auto Count = static_cast<std::int64_t>(GetData.size());
    const auto Last = Checked<std::int32_t>(std::int64_t{WavPos} + Count - 1);
    if (WavPos < 1 || Count > BuffLen || Last > Samples) {
        Store.ShowError(OutOfLimit);
        return;
    }
    if (Count == 0) return;
    if (!BuffHolds(WavPos, Last)) MovePointer(WavPos - 1);
    std::copy_n(BuffAt(WavPos), Count, GetData.begin());
}

}  // namespace Tolvar
