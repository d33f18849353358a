#include "platform/SoundCard.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tolvar {

SoundCard::SoundCard(Apartment& TheHome, std::unique_ptr<Sink> TheOutput, SinkRate TheRate,
                     Log& TheJournal)
    : HomeOf(TheHome),
      Output(std::move(TheOutput)),
      Rate(TheRate),
      Journal(TheJournal),
      ToSink([this](std::span<const std::int16_t> Samples) { Output->Write(Samples); }) {}

SoundCard::~SoundCard() = default;

void SoundCard::Finish() {
    if (!Present() || Finished) return;
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
        if (SinkFormat.Channels == 0) OpenSink(Format, NominalHz);
        if (Run && (Run->From() != Format || RunOf != &From)) FlushRun();
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

void SoundCard::OpenSink(StreamFormat Format, int NominalHz) {
    const int Hz = Rate.By == SinkRate::Rule::Fixed  ? Rate.Hz
                   : Rate.By == SinkRate::Rule::Wave ? NominalHz
                                                     : Format.RateHz;
    Output->Open(Format.Channels, Hz);
    SinkFormat = {Format.Channels, Hz};
}

void SoundCard::FlushRun() {
    const auto Ended = std::move(Run);
    Ended->Flush(ToSink);
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
