#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "waveplay/sound/SoundBytes.h"

namespace Tolvar {

/// A sound file of any kind that libsndfile reads, open for reading. Frames are 0-based. Failures
/// are RuntimeFailure and name the file, the frame or byte and what was said; a file that cannot be
/// read to its end is one, too. One thread.
class SoundFile {
  public:
    /// Only regular files, which stay open as long as this lives.
    explicit SoundFile(const std::string& Path);

    const std::string& Path() const { return Bytes_.Path(); }
    const SoundBytes& Bytes() const { return Bytes_; }
    int Channels() const { return Info_.channels; }
    int RateHz() const { return Info_.samplerate; }
    /// As the header says; a file that was cut off can hold less. Counted, by decoding it, where
    /// the header does not say.
    std::int64_t Frames() const { return Info_.frames; }
    /// Whether the samples are finer than 16 bits.
    bool BeyondSixteenBits() const;
    /// The bits per sample (8 unsigned, or 16 with the low byte first) of a PCM WAV file whose
    /// samples lie in it as they are; 0 for any other kind.
    int PlainWavBits() const;

    /// The next frames, interleaved, full scale being 1; a float file may go beyond. Into holds
    /// whole frames. Fewer than asked for at the end of the file only.
    std::size_t Read(std::span<double> Into);

    /// The next frame read is this one, exactly as if all before it had been read.
    void GoTo(std::int64_t Frame);

  private:
    struct Close {
        void operator()(SNDFILE* Open) const { sf_close(Open); }
    };

    void Open();
    void CountFrames();
    bool IsCutShort(std::int64_t Got) const;
    void ReadOver(std::int64_t Frames);
    [[noreturn]] void Fail(const std::string& What);

    SoundBytes Bytes_;
    SF_INFO Info_{};
    std::unique_ptr<SNDFILE, Close> Sound_;
    std::int64_t Next_ = 0;  // the frame that is read next
};

}  // namespace Tolvar
