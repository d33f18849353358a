#include "waveplay/sound/SoundBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Tolvar {
namespace {

constexpr std::int64_t TagBytes = 128;  // of an ID3v1 tag, the last of a file
constexpr std::int64_t MostRatio = 64;  // of two MPEG frames' bit rates

}  // namespace

SoundBytes::SoundBytes(const std::string& Path)
    : Path_(Path), In_(OpenDescriptor(Path, O_RDONLY | O_NONBLOCK)) {
    struct stat Found {};
    if (!In_ || ::fstat(In_.Get(), &Found) != 0) {
        throw ErrnoFailure("cannot open " + Path_, errno);
    }
    if (!S_ISREG(Found.st_mode)) {
        throw RuntimeFailure(FailureKind::File, "cannot open " + Path_ + ": not a regular file");
    }
    Sounding_ = Size_ = Found.st_size;
}

std::size_t SoundBytes::ReadAt(std::int64_t Place, std::span<char> Into) const {
    std::size_t Got = 0;
    while (Got < Into.size()) {
        const std::int64_t At = Place + static_cast<std::int64_t>(Got);
        const ssize_t Count = ::pread(In_.Get(), Into.data() + Got, Into.size() - Got, At);
        if (Count == 0) break;
        if (Count > 0) {
            Got += static_cast<std::size_t>(Count);
        } else if (errno != EINTR) {
            throw ErrnoFailure("cannot read " + Path_ + " at byte " + std::to_string(At + 1),
                               errno);
        }
    }
    return Got;
}

SNDFILE* SoundBytes::Open(SF_INFO& Info) {
    SF_VIRTUAL_IO Road{};
    Road.get_filelen = [](void* Self) -> sf_count_t {
        return static_cast<SoundBytes*>(Self)->Shown();
    };
    Road.seek = [](sf_count_t Offset, int Whence, void* Self) -> sf_count_t {
        return static_cast<SoundBytes*>(Self)->Seek(Offset, Whence);
    };
    Road.read = [](void* Into, sf_count_t Wanted, void* Self) -> sf_count_t {
        return static_cast<SoundBytes*>(Self)->Read(Into, Wanted);
    };
    Road.tell = [](void* Self) -> sf_count_t { return static_cast<SoundBytes*>(Self)->Tell(); };
    Place_ = 0;
    return sf_open_virtual(&Road, SFM_READ, &Info, this);
}

void SoundBytes::RequireRead() const {
    if (Failed_) throw RuntimeFailure(*Failed_);
}

void SoundBytes::HideLength(std::int64_t Bytes) {
    Sounding_ = std::min(Bytes, Size_);
    IsHidden_ = true;
}

std::int64_t SoundBytes::Shown() const {
    return IsHidden_ ? Sounding_ * MostRatio + TagBytes : Size_;
}

std::int64_t SoundBytes::Seek(std::int64_t Offset, int Whence) {
    const std::int64_t From = Whence == SEEK_SET ? 0 : Whence == SEEK_CUR ? Place_ : Shown();
    return Place_ = std::max<std::int64_t>(0, From + Offset);
}

// Behind a failure all is at its end: libsndfile would look for a header for ever otherwise.
std::int64_t SoundBytes::Tell() const {
    return Failed_ ? Shown() : Place_;
}

std::int64_t SoundBytes::Read(void* Into, std::int64_t Wanted) noexcept try {
    // A decoder looks for a tag at the end, and takes a file where it cannot read for a stream.
    const std::int64_t Tag = Shown() - TagBytes;
    std::int64_t Got = 0;
    if (IsHidden_ && Place_ >= Tag) {
        Got = std::clamp<std::int64_t>(Shown() - Place_, 0, Wanted);
        std::memset(Into, 0, static_cast<std::size_t>(Got));
    } else if (Place_ < Sounding_ && !Failed_) {
        const auto Most = static_cast<std::size_t>(std::min(Wanted, Sounding_ - Place_));
        const auto Room = std::span(static_cast<char*>(Into), Most);
        Got = static_cast<std::int64_t>(ReadAt(Place_, Room));
    }
    Place_ += Got;
    return Got;
} catch (const RuntimeFailure& Failure) {
    Failed_ = Failure;
    return 0;
} catch (...) {  // no memory for the text
    Failed_.emplace(FailureKind::File, "a sound file cannot be read");
    return 0;
}

}  // namespace Tolvar
