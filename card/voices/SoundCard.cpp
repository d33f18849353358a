#include "card/voices/SoundCard.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tolvar {

SoundCard::SoundCard(Apartment& Home, CardOutput To, SinkRate Rate, Log& Journal)
    : Home_(Home),
      Output_(std::move(To.Recorded)),
      Live_(std::move(To.Live)),
      Rate_(Rate),
      Journal_(Journal),
      FadeMs_(To.RecordedFadeMs),
      ToSink_([this](std::span<const std::int16_t> Samples) {
          if (Ramps_) {
              Ramps_->Pass(Samples, ToOutput_);
          } else {
              Output_->Write(Samples);
          }
      }),
      ToOutput_([this](std::span<const std::int16_t> Samples) { Output_->Write(Samples); }) {}

SoundCard::~SoundCard() {
    TellNotices();
}

void SoundCard::TellNotices() const {
    if (!Live_) return;
    for (const std::string& Line : Live_->TakeNotices())
        Journal_.Write(Line);
}

std::int64_t SoundCard::NowNs() const {
    if (!Live_) return Home_.Time().NowNs();
    TellNotices();
    return Live_->NowNs();
}

std::int64_t SoundCard::ClockNsOf(std::int64_t DueNs) const {
    if (!Live_) return DueNs;
    // At least a moment ahead: a device that gets ready stands still.
    return Home_.Time().NowNs() + std::max(DueNs - NowNs(), NsPerMs);
}

std::int64_t SoundCard::BeginRun(FrameSource& Ahead, StreamFormat Format, int NominalHz,
                                 std::int64_t Frame, std::int64_t AtNs) {
    return Live_ ? Live_->Begin({&Ahead, Format, OutputHz(Format, NominalHz), Frame}) : AtNs;
}

std::int64_t SoundCard::CutRun(const FrameSource& Ahead) {
    if (!Live_) return NowNs();
    const std::int64_t AtNs = Live_->Cut(Ahead);
    TellNotices();
    return AtNs;
}

std::unique_lock<InheritingMutex> SoundCard::HoldContent() const {
    return Live_ ? Live_->Hold() : std::unique_lock<InheritingMutex>();
}

void SoundCard::HasMore() const {
    if (Live_) Live_->Wake();
}

void SoundCard::Finish() {
    if (!Output_ || Finished_) return;
    for (Voice* Each : Voices_)
        Each->CatchUp();
    EndRun();
    Finished_ = true;
    if (Failed_) throw RuntimeFailure(*Failed_);
    try {
        Output_->Finish();
    } catch (const RuntimeFailure& Cause) {
        Fail(Cause);
        throw;
    }
}

bool SoundCard::PlaysOther(const Voice& Than) const {
    return std::ranges::any_of(Voices_,
                               [&Than](Voice* Each) { return Each != &Than && Each->IsPlaying(); });
}

void SoundCard::Render(const Voice& From, StreamFormat Format, int NominalHz,
                       std::span<const std::int16_t> Samples) noexcept {
    if (!Takes() || Samples.empty()) return;
    Guarded([&] {
        if (Run_ && (Run_->From() != Format || LastVoice_ != &From)) FlushRun();
        const bool Anew = Output_->TakesEveryFormat() &&
                          SinkFormat_ != StreamFormat{Format.Channels, OutputHz(Format, NominalHz)};
        if (Anew || SinkFormat_.Channels == 0) OpenSink(Format, NominalHz);
        if (!Run_) Run_ = std::make_unique<OutputConverter>(Format, SinkFormat_);
        LastVoice_ = &From;
        Run_->Convert(Samples, ToSink_);
    });
}

void SoundCard::EndRun(const Voice& Of) noexcept {
    if (LastVoice_ == &Of) EndRun();
}

void SoundCard::EndRun() noexcept {
    if (Takes() && Run_) Guarded([this] { FlushRun(); });
    Run_.reset();
}

int SoundCard::OutputHz(StreamFormat Format, int NominalHz) const {
    if (Rate_.By == SinkRate::Rule::Fixed) return Rate_.Hz;
    return Rate_.By == SinkRate::Rule::Wave ? NominalHz : Format.RateHz;
}

void SoundCard::OpenSink(StreamFormat Format, int NominalHz) {
    const int Hz = OutputHz(Format, NominalHz);
    Output_->Open(Format.Channels, Hz);
    SinkFormat_ = {Format.Channels, Hz};
    if (FadeMs_ > 0) Ramps_.emplace(SinkFormat_, FadeMs_);
}

void SoundCard::FlushRun() {
    const auto Ended = std::move(Run_);
    Ended->Flush(ToSink_);
    if (Ramps_) Ramps_->Finish(ToOutput_);
}

void SoundCard::Fail(const RuntimeFailure& Cause) {
    Failed_ = Cause;
    Journal_.Write("the sound card's output failed, play goes on in silence: " +
                   std::string(Cause.what()));
}

template <typename Work>
void SoundCard::Guarded(Work Step) noexcept {
    try {
        Step();
    } catch (const RuntimeFailure& Cause) {
        Fail(Cause);
    } catch (const std::exception& Cause) {
        Fail({FailureKind::Device, Cause.what()});
    }
}

}  // namespace Tolvar
