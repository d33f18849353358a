#include "waveplay/sound/RiffChunks.h"

#include <array>
#include <bit>
#include <limits>
#include <string_view>

namespace Tolvar {
namespace {

constexpr std::int64_t HeadBytes = 8;  // a name of four letters and the length of what follows
constexpr std::int64_t KindBytes = 4;  // of a file or a list, before its chunks

}  // namespace

RiffChunks::RiffChunks(const SoundBytes& In) : In_(In) {
    std::array<char, 4> Letters{};
    In_.ReadAt(0, Letters);
    const std::string_view Kind(Letters.data(), Letters.size());
    IsBigEnd_ = Kind == "RIFX";
    Next_ = HeadBytes + KindBytes;
    const bool IsRiff = IsBigEnd_ || Kind == "RIFF" || Kind == "RF64";
    End_ = IsRiff ? std::numeric_limits<std::int64_t>::max() : 0;
}

RiffChunks::RiffChunks(const RiffChunks& Of, const RiffChunk& List)
    : In_(Of.In_), IsBigEnd_(Of.IsBigEnd_), Next_(List.At + KindBytes), End_(Of.Behind(List)) {}

std::int64_t RiffChunks::Behind(const RiffChunk& Chunk) const {
    return Chunk.At + Chunk.Bytes + (Chunk.Bytes & 1U);  // one of odd length has a pad byte
}

std::optional<RiffChunk> RiffChunks::Next() {
    std::array<char, HeadBytes> Head{};
    if (Next_ >= End_ || In_.ReadAt(Next_, Head) < Head.size()) return std::nullopt;
    RiffChunk Found{std::string(Head.data(), 4), Next_ + HeadBytes, 0};
    for (std::size_t Index = 0; Index < 4; ++Index) {
        const char Byte = Head[IsBigEnd_ ? 4 + Index : 7 - Index];
        Found.Bytes = (Found.Bytes << 8U) | static_cast<unsigned char>(Byte);
    }
    Next_ = Behind(Found);
    return Found;
}

void RequireForwardLists(const SoundBytes& In) {
    RiffChunks File(In);
    while (const auto List = File.Next()) {
        if (List->Name != "LIST" && List->Name != "INFO") continue;
        RiffChunks Entries(File, *List);
        while (const auto Entry = Entries.Next()) {
            if (std::bit_cast<std::int32_t>(Entry->Bytes) >= 0) continue;
            throw RuntimeFailure(FailureKind::Input,
                                 In.Path() +
                                     ": not a sound file that can be read: a list at byte " +
                                     std::to_string(List->At - HeadBytes + 1) +
                                     " has an entry of impossible length");
        }
    }
}

}  // namespace Tolvar
