#include "card/live/AlsaDevice.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace Tolvar {
namespace {

constexpr unsigned UsPerMs = 1000;
constexpr int ReckonsToMs = 3;            // how exactly a server tells its delay
constexpr unsigned PeriodsPerBuffer = 2;  // a server wakes this process up once a period

void Ignore(const char* /*File*/, int /*Line*/, const char* /*Function*/, int /*Error*/,
            const char* /*Format*/, ...) {}  // NOLINT(cert-dcl50-cpp)

// The library would print its findings to standard error; what it answers is said once, elsewhere.
void KeepQuiet() {
    snd_lib_error_set_handler(Ignore);
}

// The device's own rates only: what has to be resampled is resampled better here.
int SetHardware(snd_pcm_t* Pcm, StreamFormat& Wanted, int LatencyMs) {
    snd_pcm_hw_params_t* Setting = nullptr;
    snd_pcm_hw_params_alloca(&Setting);
    auto Channels = static_cast<unsigned>(Wanted.Channels);
    auto Rate = static_cast<unsigned>(Wanted.RateHz);
    unsigned BufferUs = static_cast<unsigned>(LatencyMs) * UsPerMs;
    unsigned PeriodUs = BufferUs / PeriodsPerBuffer;
    int Result = snd_pcm_hw_params_any(Pcm, Setting);
    const auto Then = [&Result](int Step) { Result = Result < 0 ? Result : Step; };
    const auto Set = [&](auto Step, auto... Value) {
        if (Result >= 0) Then(Step(Pcm, Setting, Value...));
    };
    Set(snd_pcm_hw_params_set_rate_resample, 0U);
    Set(snd_pcm_hw_params_set_access, SND_PCM_ACCESS_RW_INTERLEAVED);
    Set(snd_pcm_hw_params_set_format, SND_PCM_FORMAT_S16);
    Set(snd_pcm_hw_params_set_channels_near, &Channels);
    Set(snd_pcm_hw_params_set_rate_near, &Rate, nullptr);
    Set(snd_pcm_hw_params_set_buffer_time_near, &BufferUs, nullptr);
    Set(snd_pcm_hw_params_set_period_time_near, &PeriodUs, nullptr);
    if (Result >= 0) Result = snd_pcm_hw_params(Pcm, Setting);
    if (Result < 0) return Result;
    if (Channels > 2) return -EINVAL;
    Wanted = {static_cast<int>(Channels), static_cast<int>(Rate)};
    return 0;
}

// It is started by hand; a short sound would never reach a threshold. In a card's ring what has
// been played is overwritten with silence: a card that gets no more goes on with what lies there.
int SetSoftware(snd_pcm_t* Pcm, bool IsCard) {
    snd_pcm_sw_params_t* Setting = nullptr;
    snd_pcm_sw_params_alloca(&Setting);
    int Result = snd_pcm_sw_params_current(Pcm, Setting);
    snd_pcm_uframes_t Never = 0;
    if (Result >= 0) Result = snd_pcm_sw_params_get_boundary(Setting, &Never);
    if (Result >= 0) Result = snd_pcm_sw_params_set_start_threshold(Pcm, Setting, Never);
    if (Result >= 0 && IsCard) Result = snd_pcm_sw_params_set_silence_threshold(Pcm, Setting, 0);
    if (Result >= 0 && IsCard) Result = snd_pcm_sw_params_set_silence_size(Pcm, Setting, Never);
    return Result >= 0 ? snd_pcm_sw_params(Pcm, Setting) : Result;
}

/// What is behind a device, also through conversions.
struct Backing {
    bool GivesBack = true;
    bool IsCard = false;           ///< a ring of its own, also behind conversions
    bool TellsEachPeriod = false;  ///< how far it has played, and not each frame
};

// Only hardware and PipeWire's plug-in, which goes by this name, give back frames that they have
// been given. Other plug-ins forward them to a server at once, though they may say otherwise, and a
// conversion (plug) may hide such a plug-in.
Backing BackingOf(snd_pcm_t* Pcm) {
    snd_pcm_info_t* About = nullptr;
    snd_pcm_info_alloca(&About);
    if (snd_pcm_info(Pcm, About) < 0) return {.GivesBack = false};
    snd_pcm_hw_params_t* Setting = nullptr;
    snd_pcm_hw_params_alloca(&Setting);
    if (snd_pcm_info_get_card(About) >= 0) {
        return {.IsCard = true,
                .TellsEachPeriod = snd_pcm_hw_params_current(Pcm, Setting) < 0 ||
                                   snd_pcm_hw_params_is_batch(Setting) != 0};
    }
    const auto Type = snd_pcm_type(Pcm);
    if (Type != SND_PCM_TYPE_IOPLUG && Type != SND_PCM_TYPE_PLUG) return {};
    const std::string_view Name = snd_pcm_info_get_name(About);
    return {.GivesBack = Name == "ALSA Playback", .TellsEachPeriod = true};
}

// Also behind a conversion, which hides the mixer's type but not from what it tells of itself.
bool IsMixed(snd_pcm_t* Pcm) {
    snd_output_t* Told = nullptr;
    if (snd_output_buffer_open(&Told) < 0) return false;
    snd_pcm_dump(Pcm, Told);
    char* Text = nullptr;
    const std::size_t Length = snd_output_buffer_string(Told, &Text);
    const bool Found =
        std::string_view(Text, Length).find("Direct Stream Mixing") != std::string_view::npos;
    snd_output_close(Told);
    return Found;
}

}  // namespace

void AlsaDevice::ClosePcm::operator()(snd_pcm_t* Opened) const {
    snd_pcm_drop(Opened);
    snd_pcm_close(Opened);
}

AlsaDevice::AlsaDevice(std::string Pcm) : Name_(std::move(Pcm)) {
    KeepQuiet();
}

AlsaDevice::~AlsaDevice() = default;

int AlsaDevice::Open(StreamFormat& Wanted, int LatencyMs) {
    snd_pcm_t* Made = nullptr;
    int Result = snd_pcm_open(&Made, Name_.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    if (Result < 0) return Result;
    Pcm_.reset(Made);
    Result = SetHardware(Made, Wanted, LatencyMs);
    const Backing Behind = Result >= 0 ? BackingOf(Made) : Backing{};
    if (Result >= 0) Result = SetSoftware(Made, Behind.IsCard);
    snd_pcm_uframes_t Period = 0;
    snd_pcm_uframes_t Buffer = 0;
    if (Result >= 0) Result = snd_pcm_get_params(Made, &Buffer, &Period);
    if (Result < 0) Pcm_.reset();
    if (Result < 0) return Result;
    Channels_ = Wanted.Channels;
    BufferFrames_ = static_cast<long>(Buffer);
    ReckonsTo_ = long{Wanted.RateHz} * ReckonsToMs / 1000;
    const auto Periods = static_cast<long>(2 * Period);
    MostFrames_ = std::max(long{Wanted.RateHz} * LatencyMs / 1000, Periods);
    GivesBack_ = Behind.GivesBack;
    SharesRing_ = Behind.IsCard && IsMixed(Made);
    Silence_.assign(Behind.IsCard ? Buffer * static_cast<std::size_t>(Channels_) : 0, 0);
    UntoldFrames_ = Behind.TellsEachPeriod ? static_cast<long>(Period) : 0;
    return Result;
}

// The library takes nothing of more than there is room for until there is room for a period.
long AlsaDevice::Write(std::span<const std::int16_t> Samples) {
    // Not before there is something to play: a server (PulseAudio) would begin with silence, and
    // throw away as much of what follows.
    if (snd_pcm_state(Pcm_.get()) == SND_PCM_STATE_SETUP) {
        if (const int Prepared = snd_pcm_prepare(Pcm_.get()); Prepared < 0) return Prepared;
    }
    const long Room = snd_pcm_avail(Pcm_.get());
    if (Room < 0) return Recovered(Room);
    const long Wanted = std::min(Room, MostFrames_ - (BufferFrames_ - Room));
    const long Frames = std::min<long>(std::ssize(Samples) / Channels_, Wanted);
    if (Frames <= 0) return 0;
    const long Taken =
        snd_pcm_writei(Pcm_.get(), Samples.data(), static_cast<snd_pcm_uframes_t>(Frames));
    if (Taken < 0) return Recovered(Taken);
    if (snd_pcm_state(Pcm_.get()) == SND_PCM_STATE_PREPARED) {
        const int Started = snd_pcm_start(Pcm_.get());
        if (Started < 0 && Started != -EAGAIN) return Recovered(Started);
    }
    return Taken;
}

long AlsaDevice::Held() {
    snd_pcm_sframes_t Room = 0;
    snd_pcm_sframes_t Delay = 0;
    const int Result = snd_pcm_avail_delay(Pcm_.get(), &Room, &Delay);
    if (Result == -EAGAIN) return BufferFrames_;  // it does not say how little
    if (Result < 0) return Recovered(Result);
    return std::max({Delay, BufferFrames_ - Room, 0L});  // one that reckons may reckon too early
}

long AlsaDevice::TakeBack(long Keep, long Least, long Most) {
    const long TakenBack = Rewound(Keep, Least, Most);
    return Silence_.empty() ? TakenBack : Silenced(TakenBack);
}

long AlsaDevice::Rewound(long Keep, long Least, long Most) {
    if (!GivesBack_) return 0;
    if (snd_pcm_avail(Pcm_.get()) < 0) return 0;
    const long Frames = snd_pcm_rewindable(Pcm_.get()) - std::max(Keep, UntoldFrames_);
    if (Frames < Least || Frames > Most) return 0;
    return Rewind(Frames);
}

long AlsaDevice::Rewind(long Frames) {
    return std::max(snd_pcm_rewind(Pcm_.get(), static_cast<snd_pcm_uframes_t>(Frames)), 0L);
}

// What was taken back still lies in the card's ring, and the card plays it when nothing new comes
// in time. It is overwritten with silence, and that taken back.
long AlsaDevice::Silenced(long TakenBack) {
    if (TakenBack == 0) return 0;
    const long Written =
        snd_pcm_writei(Pcm_.get(), Silence_.data(), static_cast<snd_pcm_uframes_t>(TakenBack));
    return Written > 0 ? Rewind(Written) : 0;
}

long AlsaDevice::Drop() {
    snd_pcm_status_t* Status = nullptr;
    snd_pcm_status_alloca(&Status);
    // What is in a ring that others play into stays there, unless it is taken back.
    const long TakenBack = SharesRing_ ? Rewound(0, 1, BufferFrames_) : 0;
    snd_pcm_sframes_t RoomBefore = 0;
    snd_pcm_sframes_t DelayBefore = 0;
    int Result = snd_pcm_avail_delay(Pcm_.get(), &RoomBefore, &DelayBefore);
    if (Result < 0) RoomBefore = Result == -EPIPE ? BufferFrames_ : 0;
    Result = snd_pcm_drop(Pcm_.get());
    if (Result >= 0) Result = snd_pcm_status(Pcm_.get(), Status);
    if (Result < 0) return Result;
    if (SharesRing_) return TakenBack;
    const long HeldBefore = BufferFrames_ - RoomBefore;
    // A server may take more until it has stopped; hardware tells no more once it has.
    const long HeldAfter = BufferFrames_ - static_cast<long>(snd_pcm_status_get_avail(Status));
    const long Least = std::max(std::min(HeldBefore, HeldAfter), 0L);
    if (GivesBack_ || DelayBefore <= HeldBefore) return Least;
    // Or it has asked for more in place of what it threw away (PulseAudio). Its delay tells which:
    // it is shorter now by what is not heard any more.
    const long Unheard = DelayBefore - snd_pcm_status_get_delay(Status);
    return std::abs(Unheard - Least) <= ReckonsTo_ ? Least : HeldBefore;
}

void AlsaDevice::Close() {
    Pcm_.reset();
}

/// 0: there is no room now. A machine that has slept is one whose device has run dry.
int AlsaDevice::Recovered(long Error) {
    if (Error == -EAGAIN || Error == -EINTR) return 0;
    if (Error != -EPIPE && Error != -ESTRPIPE) return static_cast<int>(Error);
    const int Result = snd_pcm_prepare(Pcm_.get());
    return Result < 0 ? Result : -EPIPE;
}

std::string AlsaDevice::TextOf(int Error) const {
    return "alsa:" + Name_ + ": " + snd_strerror(-Error);
}

std::vector<AlsaPcm> AlsaPcms() {
    KeepQuiet();
    std::vector<AlsaPcm> Found;
    void** Hints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &Hints) < 0) return Found;
    const auto Text = [](void* Hint, const char* Id) {
        const std::unique_ptr<char, decltype(&std::free)> Given(snd_device_name_get_hint(Hint, Id),
                                                                &std::free);
        std::string Line = Given ? Given.get() : "";
        for (char& Each : Line)
            Each = Each == '\n' ? ' ' : Each;
        return Line;
    };
    for (void** Hint = Hints; *Hint != nullptr; ++Hint) {
        if (Text(*Hint, "IOID") != "Input")
            Found.push_back({Text(*Hint, "NAME"), Text(*Hint, "DESC")});
    }
    snd_device_name_free_hint(Hints);
    return Found;
}

}  // namespace Tolvar
