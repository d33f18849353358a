#pragma once

#include <memory>
#include <string>
#include <vector>

#include "card/live/OutputDevice.h"

struct _snd_pcm;

namespace Tolvar {

/// A PCM of the Advanced Linux Sound Architecture, which desktop sound servers stand behind too.
class AlsaDevice : public OutputDevice {
  public:
    /// Pcm as ALSA names it, such as "default" or "hw:1,0". Opens nothing yet.
    explicit AlsaDevice(std::string Pcm);
    ~AlsaDevice() override;
    AlsaDevice(const AlsaDevice&) = delete;
    AlsaDevice& operator=(const AlsaDevice&) = delete;

    int Open(StreamFormat& Wanted, int LatencyMs) override;
    long Write(std::span<const std::int16_t> Samples) override;
    long Held() override;
    long TakeBack(long Keep, long Least, long Most) override;
    long Drop() override;
    void Close() override;
    std::string TextOf(int Error) const override;

  private:
    struct ClosePcm {
        void operator()(_snd_pcm* Opened) const;
    };
    int Recovered(long Error);
    long Rewound(long Keep, long Least, long Most);
    long Rewind(long Frames);
    long Silenced(long TakenBack);

    std::string Name_;
    std::unique_ptr<_snd_pcm, ClosePcm> Pcm_;  // null: closed
    int Channels_ = 0;
    long BufferFrames_ = 0;
    long MostFrames_ = 0;  // that it is to hold
    long ReckonsTo_ = 0;   // frames by which a server's delay may be wrong
    bool GivesBack_ = false;
    bool SharesRing_ = false;            // with others that play: what is dropped stays in it
    std::vector<std::int16_t> Silence_;  // as much as a card's ring holds; empty for others
    long UntoldFrames_ = 0;              // that it may have played, or a server taken, and not told
};

/// A PCM that sound can be played on, and what the system says of it, on one line.
struct AlsaPcm {
    std::string Name;
    std::string About;
};

std::vector<AlsaPcm> AlsaPcms();

}  // namespace Tolvar
