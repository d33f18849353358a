#pragma once

#include <sndfile.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// The bytes of a sound file, for libsndfile and for who looks into them himself. A read that
/// failed is told from the end of the file, which libsndfile does not do: it is kept until
/// RequireRead throws it. One thread.
class SoundBytes {
  public:
    /// Only regular files: a pipe or a device could keep the program waiting. RuntimeFailure(File).
    explicit SoundBytes(const std::string& Path);
    SoundBytes(const SoundBytes&) = delete;
    SoundBytes& operator=(const SoundBytes&) = delete;

    const std::string& Path() const { return Path_; }
    /// When the file was opened.
    std::int64_t Size() const { return Size_; }

    /// The bytes from Place (0-based) on; fewer than asked for at the end of the file only.
    /// RuntimeFailure(File) with the file, the byte and what the system said.
    std::size_t ReadAt(std::int64_t Place, std::span<char> Into) const;

    /// What sf_open_virtual returns: the caller's, and gone before this object is. Reads from the
    /// beginning. Info names the format, the rate and the channels of a kind without a header, and
    /// is zero for others.
    SNDFILE* Open(SF_INFO& Info);

    /// Throws what a read for libsndfile failed with, if one has. To be asked behind every call of
    /// libsndfile that may have read.
    void RequireRead() const;

    /// From the next Open on, libsndfile is shown a size that no guess of a length falls short of,
    /// and finds the end where the first Bytes of the file end.
    void HideLength(std::int64_t Bytes);
    bool IsHidden() const { return IsHidden_; }
    /// Whether libsndfile has read the last of its bytes. What a decoder complains of then is the
    /// end where the length is hidden.
    bool Spent() const { return Place_ >= Sounding_; }

  private:
    std::int64_t Shown() const;
    std::int64_t Seek(std::int64_t Offset, int Whence);
    std::int64_t Tell() const;
    std::int64_t Read(void* Into, std::int64_t Wanted) noexcept;

    std::string Path_;
    Descriptor In_;
    std::int64_t Size_ = 0;
    std::int64_t Sounding_ = 0;  // bytes that libsndfile gets to see
    bool IsHidden_ = false;
    std::int64_t Place_ = 0;  // libsndfile's
    std::optional<RuntimeFailure> Failed_;
};

}  // namespace Tolvar
