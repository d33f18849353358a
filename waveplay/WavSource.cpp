#include "waveplay/WavSource.h"

#include <sndfile.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

#include "platform/Posix.h"

namespace Tolvar {
namespace {

constexpr std::int64_t LastInt32 = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void Refuse(const std::string& Path, const std::string& Why) {
    throw RuntimeFailure(FailureKind::Input, Path + ": " + Why);
}

[[noreturn]] void CannotOpen(const std::string& Path, int Error) {
    throw ErrnoFailure("cannot open " + Path, Error);
}

// A named pipe or a device would keep the program waiting, so only regular files are opened.
std::int64_t RegularFileBytes(const std::string& Path) {
    std::error_code Error;
    const auto Status = std::filesystem::status(Path, Error);
    if (!std::filesystem::exists(Status)) CannotOpen(Path, Error ? Error.value() : ENOENT);
    if (!std::filesystem::is_regular_file(Status)) {
        throw RuntimeFailure(FailureKind::File, "cannot open " + Path + ": not a regular file");
    }
    const auto Bytes = std::filesystem::file_size(Path, Error);
    if (Error) CannotOpen(Path, Error.value());
    return static_cast<std::int64_t>(Bytes);
}

std::uint32_t Little32(const char* Bytes) {
    std::uint32_t Value = 0;
    for (int Index = 3; Index >= 0; --Index) {
        Value = (Value << 8U) | static_cast<unsigned char>(Bytes[Index]);
    }
    return Value;
}

struct DataChunk {
    std::int64_t At = 0;     // 0-based byte position of the first sample
    std::int64_t Bytes = 0;  // as the header has it
};

// Walks the chunks up to the samples; libsndfile reads everything else but does not say where the
// samples lie.
std::optional<DataChunk> FindData(const std::string& Path) {
    std::ifstream Raw(Path, std::ios::binary);
    constexpr std::int64_t RiffHeaderBytes = 12;
    constexpr std::int64_t ChunkHeaderBytes = 8;
    std::array<char, ChunkHeaderBytes> Head{};

    for (std::int64_t At = RiffHeaderBytes; Raw.seekg(At) && Raw.read(Head.data(), Head.size());) {
        const std::int64_t Bytes = Little32(Head.data() + 4);
        if (std::string_view(Head.data(), 4) == "data")
            return DataChunk{At + ChunkHeaderBytes, Bytes};
        At += ChunkHeaderBytes + Bytes + (Bytes & 1);  // a chunk of odd length has a pad byte
    }
    return std::nullopt;
}

// The bits per sample when the file is of a kind that can be played in place.
std::optional<std::int32_t> PlayableBits(SNDFILE* Sound, int Format) {
    const int Kind = Format & SF_FORMAT_TYPEMASK;
    if (Kind != SF_FORMAT_WAV && Kind != SF_FORMAT_WAVEX && Kind != SF_FORMAT_RF64) return {};
    switch (Format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_U8:
            return 8;
        case SF_FORMAT_PCM_16:
            if (sf_command(Sound, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_TRUE) return {};
            return 16;
        default:
            return {};
    }
}

WavSource ReadHeader(const std::string& Path, SF_INFO& Info) {
    SNDFILE* Sound = sf_open(Path.c_str(), SFM_READ, &Info);
    if (Sound == nullptr) {
        const std::string Why = sf_strerror(nullptr);
        if (!std::ifstream(Path)) CannotOpen(Path, errno);
        Refuse(Path, "not a sound file that can be read: " + Why);
    }
    const auto Bits = PlayableBits(Sound, Info.format);
    sf_close(Sound);

    if (!Bits || Info.channels < 1 || Info.channels > 2) {
        Refuse(Path, "not a PCM WAV file of 8 or 16 bits and one or two channels");
    }
    WavSource Source;
    Source.Bits = *Bits;
    Source.Channels = Info.channels;
    Source.Rate = Info.samplerate;
    return Source;
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

WavSource OpenWav(const std::string& Path) {
    const std::int64_t FileBytes = RegularFileBytes(Path);
    SF_INFO Info{};
    WavSource Source = ReadHeader(Path, Info);

    const auto Data = FindData(Path);
    if (!Data) Refuse(Path, "no data chunk found");
    const std::int64_t FrameBytes = Source.Channels * Source.Bits / 8;
    const std::int64_t Room = std::max<std::int64_t>(0, FileBytes - Data->At) / FrameBytes;
    const std::int64_t Frames = std::clamp<std::int64_t>(Info.frames, 0, Room);
    // The right channel's samples begin one sample further on.
    if (Data->At + 1 + Source.Bits / 8 > LastInt32) {
        Refuse(Path, "the samples begin beyond byte 2147483647");
    }
    if (Frames > LastInt32) Refuse(Path, "more than 2147483647 frames");
    TellIfShort(Path, *Data, FileBytes);

    Source.Frames = static_cast<std::int32_t>(Frames);
    Source.DataPos = static_cast<std::int32_t>(Data->At + 1);
    Source.FullPath = std::filesystem::absolute(Path).lexically_normal().string();
    if (Source.FullPath.find('\\') != std::string::npos) {
        Refuse(Path, "a path with a backslash cannot be handed over: it parts folders there");
    }
    return Source;
}

}  // namespace Tolvar
