#include "store/filecarrier/SampleFile.h"

#include <algorithm>
#include <memory>

#include "platform/Checked.h"
#include "platform/OnFailure.h"

namespace Tolvar {

namespace {

constexpr std::int64_t CopyPiece = 1024 * 1024;  // bytes

std::int64_t BytePosAfter(std::int32_t Samples) {
    return std::int64_t{CheckedMul(2, Samples)} + 1;
}

}  // namespace

void SamplesRead(Files& Disk, const std::string& Name, std::int32_t Before,
                 std::span<std::int16_t> Into) {
    const std::int64_t BytePos = BytePosAfter(Before);
    Disk.Open(Name, FileAccess::Read)->ReadAt(BytePos, std::as_writable_bytes(Into));
}

void SamplesWrite(Files& Disk, const std::string& Name, std::int32_t Before,
                  std::span<const std::int16_t> From) {
    const std::int64_t BytePos = BytePosAfter(Before);
    const auto To = Disk.Open(Name, FileAccess::Update);
    To->WriteAt(BytePos, std::as_bytes(From));
    To->Close();
}

bool SampleFileMake(Files& Disk, const std::string& Name, std::span<const std::int16_t> Samples) {
    auto To = Disk.CreateNew(Name);
    if (!To) return false;
    const OnFailure Unmake([&] {
        To.reset();
        Disk.Delete(Name);
    });
    To->WriteAt(1, std::as_bytes(Samples));
    To->Close();
    return true;
}

void SampleFileCopy(File& From, std::int64_t Bytes, Files& Disk, const std::string& Name) {
    std::vector<std::byte> Piece(static_cast<std::size_t>(std::min(Bytes, CopyPiece)));
    const auto To = Disk.Open(Name, FileAccess::Update);
    for (std::int64_t Done = 0; Done < Bytes;) {
        const std::int64_t Count = std::min(Bytes - Done, CopyPiece);
        const auto Part = std::span(Piece).first(static_cast<std::size_t>(Count));
        From.ReadAt(Done + 1, Part);
        To->WriteAt(Done + 1, Part);
        Done += Count;
    }
    To->Close();
}

void SampleFileSetLength(Files& Disk, const std::string& Name, std::int32_t Bytes) {
    // Nothing is written that the close could lose.
    Disk.Open(Name, FileAccess::Update)->SetLength(Bytes);
}

bool SetFileSize(Files& Disk, const std::string& Name, std::int32_t Bytes) {
    if (Bytes < 0) return false;
    try {
        Disk.Open(Name, FileAccess::Update);
    } catch (const RuntimeFailure&) {
        return false;
    }
    SampleFileSetLength(Disk, Name, Bytes);
    return true;
}

SampleFileGrowth::SampleFileGrowth(Files& Disk, const std::string& Name, std::int32_t Old,
                                   std::int32_t New)
    : Disk_(Disk), Name_(Name), OldSize_(Old), NewSize_(New) {}

void SampleFileGrowth::WriteZeros(std::int32_t From, std::int32_t Piece) {
    const std::int64_t NewBytes = BytePosAfter(NewSize_) - 1;
    const std::vector<std::int16_t> Silence(
        static_cast<std::size_t>(std::min(Piece, NewSize_ - From)));
    const auto To = Disk_.Open(Name_, FileAccess::Update);
    OldBytes_ = To->Length();
    OverwrittenPos_ = BytePosAfter(From);
    const std::int64_t Behind = std::min(OldBytes_, NewBytes) - OverwrittenPos_ + 1;
    Overwritten_.resize(static_cast<std::size_t>(std::max<std::int64_t>(Behind, 0)));
    if (!Overwritten_.empty()) To->ReadAt(OverwrittenPos_, Overwritten_);
    const OnFailure PutBack([&] { Undo(); });
    for (std::int32_t At = From; At < NewSize_;) {
        const std::int32_t Count = std::min(Piece, NewSize_ - At);
        To->WriteAt(BytePosAfter(At),
                    std::as_bytes(std::span(Silence).first(static_cast<std::size_t>(Count))));
        At += Count;
    }
    To->Close();
}

void SampleFileGrowth::Undo() {
    const auto To = Disk_.Open(Name_, FileAccess::Update);
    if (!Overwritten_.empty()) To->WriteAt(OverwrittenPos_, Overwritten_);
    To->SetLength(OldBytes_);
    To->Close();
}

}  // namespace Tolvar
