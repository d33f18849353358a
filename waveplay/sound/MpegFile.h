#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// The bytes of an MPEG audio file in which nothing says how long it is. The decoder guesses that
/// from the file's size and the first frame, and reads no further; so it is shown a size that no
/// guess falls short of, and finds the end where the bytes end. One thread.
class MpegFile {
  public:
    /// Null when the file says how long it is, or cannot be read.
    static std::unique_ptr<MpegFile> WithoutLength(const std::string& Path);

    /// What sf_open_virtual returns: the caller's, and gone before this object is.
    SNDFILE* Open(SF_INFO& Info);

    /// Whether the last byte has been read: what the decoder complains of then is the end.
    bool Spent() const { return Place_ >= Bytes_; }

  private:
    MpegFile(Descriptor Opened, std::int64_t Length) : In_(std::move(Opened)), Bytes_(Length) {}

    std::int64_t Shown() const;
    std::int64_t Seek(std::int64_t Offset, int Whence);
    std::int64_t Read(void* Into, std::int64_t Wanted);

    Descriptor In_;
    std::int64_t Bytes_;
    std::int64_t Place_ = 0;
};

}  // namespace Tolvar
