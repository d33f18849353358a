#include "waveplay/sound/RiffLists.h"

#include <array>
#include <bit>
#include <cstdint>
#include <fstream>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

constexpr std::int64_t HeadBytes = 8;  // a name of four letters and the length of what follows
constexpr std::int64_t KindBytes = 4;  // of a file or a list, before its chunks

/// A RIFF file, or one of its relatives with the same chunks.
struct RiffFile {
    std::ifstream Raw;
    bool BigEnd = false;

    /// False behind the last whole head.
    bool HeadAt(std::int64_t At, std::string& Name, std::uint32_t& Bytes) {
        std::array<char, HeadBytes> Head{};
        if (!Raw.seekg(At) || !Raw.read(Head.data(), Head.size())) return false;
        Name.assign(Head.data(), 4);
        Bytes = 0;
        for (std::size_t Index = 0; Index < 4; ++Index) {
            const char Byte = Head[BigEnd ? 4 + Index : 7 - Index];
            Bytes = (Bytes << 8U) | static_cast<unsigned char>(Byte);
        }
        return true;
    }
};

std::int64_t Behind(std::int64_t At, std::uint32_t Bytes) {
    return At + HeadBytes + Bytes + (Bytes & 1U);  // a chunk of odd length has a pad byte
}

bool IsForward(RiffFile& In, std::int64_t From, std::int64_t End) {
    std::string Name;
    std::uint32_t Bytes = 0;
    for (std::int64_t At = From; At < End && In.HeadAt(At, Name, Bytes); At = Behind(At, Bytes)) {
        if (std::bit_cast<std::int32_t>(Bytes) < 0) return false;
    }
    return true;
}

}  // namespace

void RequireForwardLists(const std::string& Path) {
    RiffFile In{std::ifstream(Path, std::ios::binary)};
    std::string Name;
    std::uint32_t Bytes = 0;
    if (!In.HeadAt(0, Name, Bytes)) return;
    In.BigEnd = Name == "RIFX";
    if (!In.BigEnd && Name != "RIFF" && Name != "RF64") return;
    for (std::int64_t At = HeadBytes + KindBytes; In.HeadAt(At, Name, Bytes);
         At = Behind(At, Bytes)) {
        const bool IsList = Name == "LIST" || Name == "INFO";
        if (!IsList || IsForward(In, At + HeadBytes + KindBytes, Behind(At, Bytes))) continue;
        throw RuntimeFailure(FailureKind::Input, Path + ": not a sound file that can be read: a " +
                                                     "list at byte " + std::to_string(At + 1) +
                                                     " has an entry of impossible length");
    }
}

}  // namespace Tolvar
