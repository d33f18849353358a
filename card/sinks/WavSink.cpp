#include "card/sinks/WavSink.h"

#include <sndfile.h>

namespace Tolvar {

void WavSink::CloseSound::operator()(sf_private_tag* Sound) const {
    sf_close(Sound);
}

WavSink::WavSink(const std::string& Path, std::int64_t DataBytesAllowed)
    : Out_(Path), DataBytesLeft_(DataBytesAllowed) {}

WavSink::~WavSink() = default;

RuntimeFailure WavSink::Failure(const std::string& Cause) const {
    return {FailureKind::File, "cannot write " + Out_.Name() + ": " + Cause};
}

void WavSink::Open(int Channels, int RateHz) {
    SF_INFO Info{};
    Info.channels = Channels;
    Info.samplerate = RateHz;
    Info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    Sound_.reset(sf_open_fd(Out_.Fd(), SFM_WRITE, &Info, SF_FALSE));
    if (!Sound_) throw Failure(sf_strerror(nullptr));
}

void WavSink::Write(std::span<const std::int16_t> Samples) {
    const auto Count = static_cast<sf_count_t>(Samples.size());
    DataBytesLeft_ -= Count * 2;
    if (DataBytesLeft_ < 0) throw Failure("a WAV file cannot hold more than 4 GiB");
    if (sf_write_short(Sound_.get(), Samples.data(), Count) != Count) {
        throw Failure(sf_strerror(Sound_.get()));
    }
}

void WavSink::Finish() {
    if (!Sound_) Open(2, 44'100);
    sf_command(Sound_.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
    if (sf_error(Sound_.get()) != SF_ERR_NO_ERROR) throw Failure(sf_strerror(Sound_.get()));
    if (const int Error = sf_close(Sound_.release()); Error != 0) {
        throw Failure(sf_error_number(Error));
    }
    Out_.Commit();
}

}  // namespace Tolvar
