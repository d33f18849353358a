#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "card/sinks/Sink.h"
#include "platform/posix/OutputFile.h"

struct sf_private_tag;

namespace Tolvar {

/// Records into a 16-bit PCM WAV file, which takes its place only when it is finished. "-" is
/// standard output.
class WavSink : public Sink {
  public:
    /// The sample bytes that a WAV file's 32-bit sizes can name.
    static constexpr std::int64_t MostDataBytes = 0xFFFF'FFFF - 0x100;

    /// RuntimeFailure(File) when Path cannot be written.
    explicit WavSink(const std::string& Path, std::int64_t DataBytesAllowed = MostDataBytes);
    ~WavSink() override;

    bool WantsFrames() const override { return true; }
    void Open(int Channels, int RateHz) override;
    void Write(std::span<const std::int16_t> Samples) override;
    /// A sink that was never opened leaves a valid file without frames (44100 Hz, stereo).
    void Finish() override;

  private:
    struct CloseSound {
        void operator()(sf_private_tag* Sound) const;
    };
    RuntimeFailure Failure(const std::string& Cause) const;

    OutputFile Out_;
    std::int64_t DataBytesLeft_;
    std::unique_ptr<sf_private_tag, CloseSound> Sound_;  // null before Open
};

}  // namespace Tolvar
