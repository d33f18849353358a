#include "waveplay/sound/MpegFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t TagBytes = 128;  // of an ID3v1 tag, the last of a file
constexpr std::int64_t MostRatio = 64;  // of two frames' bit rates

std::string BytesAt(const Descriptor& In, std::int64_t Place, std::size_t Count) {
    std::string Bytes(Count, '\0');
    const ssize_t Got = pread(In.Get(), Bytes.data(), Count, static_cast<off_t>(Place));
    Bytes.resize(Got < 0 ? 0 : static_cast<std::size_t>(Got));
    return Bytes;
}

// Behind the tag that a file may begin with, whose length has seven bits to a byte.
std::int64_t FirstFrame(const Descriptor& In) {
    constexpr std::size_t HeadBytes = 10;
    const std::string Head = BytesAt(In, 0, HeadBytes);
    if (Head.size() < HeadBytes || !Head.starts_with("ID3")) return 0;
    std::int64_t Length = 0;
    for (const char Each : std::string_view(Head).substr(6))
        Length = Length * 128 + (static_cast<unsigned char>(Each) & 127U);
    return Length + static_cast<std::int64_t>(HeadBytes);
}

// The first frame may be one without sound that counts the others.
bool CountsFrames(const Descriptor& In) {
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

std::unique_ptr<MpegFile> MpegFile::WithoutLength(const std::string& Path) {
    Descriptor In = OpenDescriptor(Path, O_RDONLY);
    std::int64_t Length = In ? lseek(In.Get(), 0, SEEK_END) : 0;
    if (Length <= 0 || CountsFrames(In)) return nullptr;
    if (Length >= TagBytes && BytesAt(In, Length - TagBytes, 3) == "TAG") Length -= TagBytes;
    return std::unique_ptr<MpegFile>(new MpegFile(std::move(In), Length));
}

SNDFILE* MpegFile::Open(SF_INFO& Info) {
    SF_VIRTUAL_IO Road{};
    Road.get_filelen = [](void* Self) -> sf_count_t {
        return static_cast<MpegFile*>(Self)->Shown();
    };
    Road.seek = [](sf_count_t Offset, int Whence, void* Self) -> sf_count_t {
        return static_cast<MpegFile*>(Self)->Seek(Offset, Whence);
    };
    Road.read = [](void* Into, sf_count_t Wanted, void* Self) -> sf_count_t {
        return static_cast<MpegFile*>(Self)->Read(Into, Wanted);
    };
    Road.tell = [](void* Self) -> sf_count_t { return static_cast<MpegFile*>(Self)->Place_; };
    return sf_open_virtual(&Road, SFM_READ, &Info, this);
}

std::int64_t MpegFile::Shown() const {
    return Bytes_ * MostRatio + TagBytes;
}

std::int64_t MpegFile::Seek(std::int64_t Offset, int Whence) {
    const std::int64_t From = Whence == SEEK_SET ? 0 : Whence == SEEK_CUR ? Place_ : Shown();
    return Place_ = std::max<std::int64_t>(0, From + Offset);
}

// The decoder looks for a tag at the end and takes a file where it cannot read for a stream.
std::int64_t MpegFile::Read(void* Into, std::int64_t Wanted) {
    const std::int64_t Tag = Shown() - TagBytes;
    std::int64_t Got = 0;
    if (Place_ >= Tag) {
        Got = std::clamp<std::int64_t>(Shown() - Place_, 0, Wanted);
        std::memset(Into, 0, static_cast<std::size_t>(Got));
    } else if (Place_ < Bytes_) {
        const auto Most = static_cast<std::size_t>(std::min(Wanted, Bytes_ - Place_));
        Got = std::max<std::int64_t>(0, pread(In_.Get(), Into, Most, static_cast<off_t>(Place_)));
    }
    Place_ += Got;
    return Got;
}

}  // namespace Tolvar
