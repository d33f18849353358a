#include "waveplay/sound/WavSource.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <optional>

#include "platform/RuntimeFailure.h"
#include "waveplay/sound/RiffChunks.h"

namespace Tolvar {
namespace {

constexpr std::int64_t LastInt32 = std::numeric_limits<std::int32_t>::max();

struct DataChunk {
    std::int64_t At = 0;     // 0-based byte position of the first sample
    std::int64_t Bytes = 0;  // as the header has it
    bool IsOnly = true;      // of its name
};

// libsndfile reads everything else but does not say where the samples lie.
std::optional<DataChunk> FindData(const SoundBytes& In) {
    std::optional<DataChunk> Found;
    RiffChunks Chunks(In);
    while (const auto Each = Chunks.Next()) {
        if (Each->Name != "data") continue;
        if (Found) return DataChunk{Found->At, Found->Bytes, false};
        Found = {Each->At, Each->Bytes};
    }
    return Found;
}

// A file that was cut off plays as far as it goes. A program that writes to a pipe cannot know the
// length and says the most there is.
void TellIfShort(const std::string& Path, const DataChunk& Data, std::int64_t FileBytes) {
    constexpr std::int64_t WrittenToPipe = 0x7FFF0000;
    const std::int64_t Missing = Data.At + Data.Bytes - FileBytes;
    if (Missing <= 0 || Data.Bytes >= WrittenToPipe) return;
    std::fprintf(stderr, "%s ends %lld bytes before its header says: playing what is there\n",
                 Path.c_str(), static_cast<long long>(Missing));
}

}  // namespace

std::variant<WavSource, std::string> PlaceInFile(const SoundFile& Sound) {
    WavSource Source;
    Source.Bits = Sound.PlainWavBits();
    Source.Channels = Sound.Channels();
    Source.Rate = Sound.RateHz();
    if (Source.Bits == 0 || Source.Channels > 2) {
        return "not a PCM WAV file of 8 or 16 bits and one or two channels";
    }
    Source.FullPath = std::filesystem::absolute(Sound.Path()).lexically_normal().string();
    if (Source.FullPath.find('\\') != std::string::npos) {
        return "a path with a backslash cannot be handed over: it parts folders there";
    }

    const std::int64_t FileBytes = Sound.Bytes().Size();
    const auto Data = FindData(Sound.Bytes());
    if (!Data) return "no data chunk found";
    if (!Data->IsOnly) return "more than one data chunk: which one counts is the decoder's to say";
    const std::int64_t FrameBytes = Source.Channels * Source.Bits / 8;
    const std::int64_t Room = std::max<std::int64_t>(0, FileBytes - Data->At) / FrameBytes;
    const std::int64_t Frames = std::clamp<std::int64_t>(Sound.Frames(), 0, Room);
    // The right channel's samples begin one sample further on.
    if (Data->At + 1 + Source.Bits / 8 > LastInt32) {
        return "the samples begin beyond byte 2147483647";
    }
    if (Frames > LastInt32) return "more than 2147483647 frames";
    TellIfShort(Sound.Path(), *Data, FileBytes);

    Source.Frames = static_cast<std::int32_t>(Frames);
    Source.DataPos = static_cast<std::int32_t>(Data->At + 1);
    return Source;
}

WavSource OpenWav(const std::string& Path) {
    const auto Place = PlaceInFile(SoundFile(Path));
    if (const auto* Why = std::get_if<std::string>(&Place)) {
        throw RuntimeFailure(FailureKind::Input, Path + ": " + *Why);
    }
    return std::get<WavSource>(Place);
}

}  // namespace Tolvar
