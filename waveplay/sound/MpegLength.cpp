#include "waveplay/sound/MpegLength.h"

#include <string>
#include <string_view>

namespace Tolvar {
namespace {

std::string BytesAt(const SoundBytes& In, std::int64_t Place, std::size_t Count) {
    std::string Bytes(Count, '\0');
    Bytes.resize(In.ReadAt(Place, Bytes));
    return Bytes;
}

// Behind the tag that a file may begin with, whose length has seven bits to a byte.
std::int64_t FirstFrame(const SoundBytes& In) {
    constexpr std::size_t HeadBytes = 10;
    const std::string Head = BytesAt(In, 0, HeadBytes);
    if (Head.size() < HeadBytes || !Head.starts_with("ID3")) return 0;
    std::int64_t Length = 0;
    for (const char Each : std::string_view(Head).substr(6))
        Length = Length * 128 + (static_cast<unsigned char>(Each) & 127U);
    return Length + static_cast<std::int64_t>(HeadBytes);
}

// The first frame may be one without sound that counts the others.
bool CountsFrames(const SoundBytes& In) {
    constexpr std::size_t Near = 64;  // bytes within which the count begins
    const std::string Frame = BytesAt(In, FirstFrame(In), Near);
    for (const std::string_view Mark : {"Xing", "Info"}) {
        const std::size_t Flags = Frame.find(Mark) + Mark.size() + 3;
        if (Frame.find(Mark) != std::string::npos && Flags < Frame.size()) {
            return (static_cast<unsigned char>(Frame[Flags]) & 1U) != 0;
        }
    }
    return false;
}

}  // namespace

std::optional<std::int64_t> BytesOfUncountedMpeg(const SoundBytes& In) {
    constexpr std::int64_t TagBytes = 128;
    if (CountsFrames(In)) return std::nullopt;
    const bool HasTag = In.Size() >= TagBytes && BytesAt(In, In.Size() - TagBytes, 3) == "TAG";
    return In.Size() - (HasTag ? TagBytes : 0);
}

}  // namespace Tolvar
