#include "store/filecarrier/FileCarrBuffClass.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/Checked.h"
#include "platform/OnFailure.h"

namespace Tolvar {

namespace {

constexpr std::string_view OutOfLimit = "Out of limit - Error";
constexpr std::int32_t LeastBuffLen = 262144;
constexpr std::array<std::int16_t, 1> OneSilent{};
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

FileCarrBuffClass::FileCarrBuffClass(WoroFileBlockMod& Store, const Clock& TimeOfDay)
    : Store_(Store),
      Time_(TimeOfDay),
      Known_(Store.FilesOfCarriers(), Own_),
      BuffLen_(BuffLenFor(Store.MemorySizeToUse())) {
    MakeTempFile();
}

FileCarrBuffClass::~FileCarrBuffClass() {
    try {
        KillFileIfAny();
    } catch (...) {  // nobody is left to tell; the file stays in its folder
        return;
    }
}

void FileCarrBuffClass::WaveSize(std::int32_t NewVal) {
    RefuseNegative(NewVal);
    Samples_ = NewVal;
}

// The file.

const std::string& FileCarrBuffClass::MadeName() const {
    if (Own_.Made) return Own_.Name;
    throw RuntimeFailure(FailureKind::File, Own_.Name.empty()
                                                ? "The carrier has no file"
                                                : "The carrier has not made its file " + Own_.Name);
}

CarrierFile FileCarrBuffClass::FreeTempFile(bool Create) const {
    const std::string Start = Store_.WorkFolder() + "\\tm";
    const std::int32_t Second = Round32(Time_.SecondsSinceMidnight());
    for (std::int32_t Number = CheckedAdd(Second, 1);; Number = CheckedAdd(Number, 1)) {
        const std::string Name = Start + std::to_string(Number) + ".tmp";
        const auto HasIt = [&](const CarrierFile& Each) { return Each.Name == Name; };
        if (Store_.FilesOfCarriers().Any(HasIt)) continue;
        if (Create ? SampleFileMake(Store_.Disk(), Name, OneSilent) : !Store_.Disk().Exists(Name)) {
            return {Name, Create};
        }
    }
}

void FileCarrBuffClass::MakeTempFile() {
    Own_ = FreeTempFile(Samples_ == 0);
    if (Own_.Made) Samples_ = 1;
}

void FileCarrBuffClass::MakeFile(std::span<const std::int16_t> Content) {
    if (!SampleFileMake(Store_.Disk(), Own_.Name, Content)) {
        throw RuntimeFailure(FailureKind::File, "The carrier cannot make its file " + Own_.Name +
                                                    ": there is one that is not the carrier's");
    }
    Own_.Made = true;
}

void FileCarrBuffClass::KillFileIfAny() {
    if (!Own_.Made) return;
    if (Store_.BlocksUse(Own_.Name)) {
        FlushBuff();
    } else {
        Store_.Disk().Delete(Own_.Name);
    }
}

void FileCarrBuffClass::FileRelease() {
    FlushBuff();
    MakeTempFile();
    if (Own_.Made) BuffDrop();
}

std::string FileCarrBuffClass::FileName1() {
    FlushBuff();
    return Own_.Name;
}

void FileCarrBuffClass::FileName1(const std::string& NewName) {
    Channel Next = Take(NewName);
    const OnFailure Unmake([&] {
        if (!OrgFile_) Store_.Disk().Delete(Next.Home.Name);
    });
    KillFileIfAny();

    Own_ = std::move(Next.Home);
    Samples_ = Next.Samples;
    BuffDrop();
    BuffData = std::move(Next.Buff);
}

FileCarrBuffClass::Channel FileCarrBuffClass::Take(const std::string& NewName) const {
    Files& Disk = Store_.Disk();
    if (!Disk.Exists(NewName)) {
        return OrgFile_ ? Channel{} : Channel{.Home = FreeTempFile(true), .Samples = 1, .Buff = {}};
    }
    RequireTakeable(NewName);
    const auto Given = Disk.Open(NewName, OrgFile_ ? FileAccess::Update : FileAccess::Read);
    const std::int32_t Bytes = ChannelBytes(*Given, NewName);
    Channel Next{.Home = {NewName, true}, .Samples = Bytes / 2, .Buff = {}};
    Next.Buff.resize(static_cast<std::size_t>(std::min(BuffLen_, Next.Samples)));
    Given->ReadAt(1, std::as_writable_bytes(std::span(Next.Buff)));
    if (!OrgFile_) Next.Home = MakeCopy(*Given, Bytes);
    return Next;
}

void FileCarrBuffClass::RequireTakeable(const std::string& NewName) const {
    Files& Disk = Store_.Disk();
    if (Own_.Made && Disk.SameFile(NewName, Own_.Name)) {
        throw RuntimeFailure(FailureKind::Input, NewName + " is the carrier's own file");
    }
    const auto HasIt = [&](const CarrierFile& Each) {
        return Each.Made && Disk.SameFile(NewName, Each.Name);
    };
    if (OrgFile_ && (Store_.BlocksUse(NewName) || Store_.FilesOfCarriers().Any(HasIt))) {
        throw RuntimeFailure(FailureKind::Input, NewName + " holds samples that are in use");
    }
}

CarrierFile FileCarrBuffClass::MakeCopy(File& Given, std::int32_t Bytes) const {
    CarrierFile Copy = FreeTempFile(true);
    const OnFailure Unmake([&] { Store_.Disk().Delete(Copy.Name); });
    SampleFileCopy(Given, Bytes, Store_.Disk(), Copy.Name);
    return Copy;
}

// Its size.

void FileCarrBuffClass::ReDimSize(std::int32_t NewSz, bool DoInitilize) {
    RefuseNegative(NewSz);
    if (Samples_ < NewSz) {
        Grow(NewSz, DoInitilize);
    } else {
        Shrink(NewSz);
    }
}

SampleFileGrowth FileCarrBuffClass::Grow(std::int32_t NewSz, bool DoInitilize) {
    FlushUnlessWithin(Samples_);
    if (Own_.OnlyNamed() && Samples_ == 0) MakeFile({});
    SampleFileGrowth Growth(Store_.Disk(), MadeName(), Samples_, NewSz);
    DoInitilize ? Growth.WriteAll(BuffLen_) : Growth.WriteLast();
    BuffCut(Samples_);
    Samples_ = NewSz;
    return Growth;
}

void FileCarrBuffClass::Shrink(std::int32_t NewSz) {
    const auto Bytes = CheckedMul(2, NewSz);
    // Also writes back what the buffer holds behind the new end.
    if (Samples_ > 0 && ZeroPtr + std::ssize(BuffData) > NewSz) MovePointer(0);
    if (Own_.Made) SampleFileSetLength(Store_.Disk(), Own_.Name, Bytes);
    BuffCut(NewSz);
    Samples_ = NewSz;
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
    const bool IsWhole = ZeroPtr == 0 && std::ssize(BuffData) >= Samples_;
    if (Own_.OnlyNamed() && IsWhole) {
        MakeFile(BuffData);
    } else {
        SamplesWrite(Store_.Disk(), MadeName(), ZeroPtr, BuffData);
    }
    BuffDirty = false;
}

// What the buffer holds behind sample Size is about to change, or there is no file yet.
void FileCarrBuffClass::FlushUnlessWithin(std::int32_t Size) {
    if (ZeroPtr + std::ssize(BuffData) > Size || !Own_.Made) FlushBuff();
}

void FileCarrBuffClass::BuffCut(std::int32_t Size) {
    const std::int64_t Left = std::max(std::int64_t{Size} - ZeroPtr, std::int64_t{0});
    if (std::ssize(BuffData) > Left) BuffData.resize(static_cast<std::size_t>(Left));
}

void FileCarrBuffClass::BuffLength(std::int32_t NewVal) {
    if (NewVal < 1) {
        throw RuntimeFailure(FailureKind::Input,
                             "A buffer cannot hold " + std::to_string(NewVal) + " samples");
    }
    MovePointer(0, NewVal);
}

void FileCarrBuffClass::MovePointer(std::int32_t NewZeroPtr, std::int32_t NewRange) {
    const std::int32_t Length = NewRange != 0 ? NewRange : BuffLen_;
    if (!Own_.Name.empty()) return BuffLoad(NewZeroPtr, Length);
    const std::int32_t Before = Samples_;
    MakeTempFile();
    const OnFailure Unmake([&] {
        Samples_ = Before;
        const CarrierFile Unused = std::exchange(Own_, {});
        if (Unused.Made) Store_.Disk().Delete(Unused.Name);
    });
    BuffLoad(NewZeroPtr, Length);
}

void FileCarrBuffClass::BuffLoad(std::int32_t NewZeroPtr, std::int32_t Length) {
    const std::int64_t Range = std::min<std::int64_t>(Length, std::int64_t{Samples_} - NewZeroPtr);
    if (NewZeroPtr < 0 || Range < 1) {
        throw RuntimeFailure(FailureKind::Input,
                             "A buffer of " + std::to_string(Length) + " samples behind sample " +
                                 std::to_string(NewZeroPtr) + " of " + std::to_string(Samples_) +
                                 " has none to hold");
    }
    FlushBuff();
    std::vector<std::int16_t> Loaded(static_cast<std::size_t>(Range));
    SamplesRead(Store_.Disk(), MadeName(), NewZeroPtr, Loaded);
    BuffData = std::move(Loaded);
    ZeroPtr = NewZeroPtr;
    BuffLen_ = Length;
}

// The samples.

std::int16_t* FileCarrBuffClass::SampleAt(std::int32_t WavPos) {
    if (!BuffHolds(WavPos, WavPos)) {
        if (WavPos == 0) return &Sample0;
        if (WavPos < 1 || WavPos > Samples_) {
            Store_.ShowError(OutOfLimit);
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
    if (WavPos < 1 || Count > BuffLen_) {
        Store_.ShowError(std::string(OutOfLimit) + "\r\n" + WithBlank(Count) + WithBlank(BuffLen_) +
                         WithBlank(WavPos));
        return;
    }
    const std::int32_t Last = CheckedAdd(WavPos, Count - 1);
    const std::int32_t Before = Samples_;
    std::optional<SampleFileGrowth> Growth;
    const OnFailure Shorten([&] {
        Samples_ = Before;
        if (!Growth) return;
        BuffDirty = BuffDirty || !BuffData.empty();
        Growth->Undo();
    });
    if (Last > Samples_) Growth.emplace(Grow(Last, false));
    // This may write the buffer back before it fails; what is undone above may be part of that.
    if (!BuffHolds(WavPos, Last)) MovePointer(WavPos - 1);
    std::ranges::copy(PutData, BuffAt(WavPos));
    BuffDirty = true;
}

void FileCarrBuffClass::BuffGet(std::int32_t WavPos, std::span<std::int16_t> GetData) {
    const auto Count = Checked<std::int32_t>(static_cast<std::int64_t>(GetData.size()));
    const bool Fits = WavPos >= 1 && Count <= BuffLen_;
    const std::int32_t Last = Fits ? CheckedAdd(WavPos, Count - 1) : 0;
    if (!Fits || Last > Samples_) {
        Store_.ShowError(OutOfLimit);
        return;
    }
    if (Count == 0) return;
    if (!BuffHolds(WavPos, Last)) MovePointer(WavPos - 1);
    std::copy_n(BuffAt(WavPos), Count, GetData.begin());
}

}  // namespace Tolvar
