#include "card/voices/SoundCard.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tolvar {

SoundCard::SoundCard(Apartment& TheHome, CardOutput To, SinkRate TheRate, Log& TheJournal)
    : HomeOf(TheHome),
      Output(std::move(To.Recorded)),
      Live(std::move(To.Live)),
      Rate(TheRate),
      Journal(TheJournal),
      FadeMs(To.RecordedFadeMs),
      ToSink([this](std::span<const std::int16_t> Samples) {
          if (Ramps) {
              Ramps->Pass(Samples, ToOutput);
          } else {
              Output->Write(Samples);
          }
      }),
      ToOutput([this](std::span<const std::int16_t> Samples) { Output->Write(Samples); }) {}

SoundCard::~SoundCard() {
    TellNotices();
}

void SoundCard::TellNotices() const {
    if (!Live) return;
    for (const std::string& Line : Live->TakeNotices())
        Journal.Write(Line);
}

std::int64_t SoundCard::NowNs() const {
    if (!Live) return HomeOf.Time().NowNs();
    TellNotices();
    return Live->NowNs();
}

std::int64_t SoundCard::ClockNsOf(std::int64_t DueNs) const {
    if (!Live) return DueNs;
    // At least a moment ahead: a device that gets ready stands still.
    return HomeOf.Time().NowNs() + std::max(DueNs - NowNs(), NsPerMs);
}

std::int64_t SoundCard::BeginRun(FrameSource& Ahead, StreamFormat Format, int NominalHz,
                                 std::int64_t Frame, std::int64_t AtNs) {
    return Live ? Live->Begin({&Ahead, Format, OutputHz(Format, NominalHz), Frame}) : AtNs;
}

std::int64_t SoundCard::CutRun(const FrameSource& Ahead) {
    if (!Live) return NowNs();
    const std::int64_t AtNs = Live->Cut(Ahead);
    TellNotices();
    return AtNs;
}

std::unique_lock<InheritingMutex> SoundCard::HoldContent() const {
    return Live ? Live->Hold() : std::unique_lock<InheritingMutex>();
}

void SoundCard::HasMore() const {
    if (Live) Live->Wake();
}

void SoundCard::Finish() {
    if (!Output || Finished) return;
    for (Voice* Each : Voices)
        Each->CatchUp();
    EndRun();
    Finished = true;
    if (Failed) throw RuntimeFailure(*Failed);
    try {
        Output->Finish();
    } catch (const RuntimeFailure& Cause) {
        Fail(Cause);
        throw;
    }
}

bool SoundCard::PlaysOther(const Voice& Than) const {
    return std::ranges::any_of(Voices,
                               [&Than](Voice* Each) { return Each != &Than && Each->IsPlaying(); });
}

void SoundCard::Render(const Voice& From, StreamFormat Format, int NominalHz,
                       std::span<const std::int16_t> Samples) noexcept {
    if (!Takes() || Samples.empty()) return;
    Guarded([&] {
        if (Run && (Run->From() != Format || RunOf != &From)) FlushRun();
        const bool Anew = Output->TakesEveryFormat() &&
                          SinkFormat != StreamFormat{Format.Channels, OutputHz(Format, NominalHz)};
        if (Anew || SinkFormat.Channels == 0) OpenSink(Format, NominalHz);
        if (!Run) Run = std::make_unique<OutputConverter>(Format, SinkFormat);
        RunOf = &From;
        Run->Convert(Samples, ToSink);
    });
}

void SoundCard::EndRun(const Voice& Of) noexcept {
    if (RunOf == &Of) EndRun();
}

void SoundCard::EndRun() noexcept {
    if (Takes() && Run) Guarded([this] { FlushRun(); });
    Run.reset();
}

int SoundCard::OutputHz(StreamFormat Format, int NominalHz) const {
    if (Rate.By == SinkRate::Rule::Fixed) return Rate.Hz;
    return Rate.By == SinkRate::Rule::Wave ? NominalHz : Format.RateHz;
}

void SoundCard::OpenSink(StreamFormat Format, int NominalHz) {
    const int Hz = OutputHz(Format, NominalHz);
    Output->Open(Format.Channels, Hz);
    SinkFormat = {Format.Channels, Hz};
    if (FadeMs > 0) Ramps.emplace(SinkFormat, FadeMs);
}

void SoundCard::FlushRun() {
    const auto Ended = std::move(Run);
    Ended->Flush(ToSink);
    if (Ramps) Ramps->Finish(ToOutput);
}

void SoundCard::Fail(const RuntimeFailure& Cause) {
    Failed = Cause;
    Journal.Write("the sound card's output failed, play goes on in silence: " +
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
