#include "waveplay/sound/RateConverter.h"

#include <soxr.h>

#include <string>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

constexpr std::size_t StepFrames = 4096;

void Require(soxr_error_t Error) {
    if (Error == nullptr) return;
    throw RuntimeFailure(FailureKind::Input, std::string("a piece cannot be resampled: ") + Error);
}

}  // namespace

void RateConverter::Free::operator()(soxr* Held) const {
    soxr_delete(Held);
}

RateConverter::RateConverter(int FromHz, int ToHz, int Channels)
    : Channels_(static_cast<std::size_t>(Channels)) {
    if (FromHz == ToHz) return;
    const soxr_io_spec_t Io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t Quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t OneThread = soxr_runtime_spec(1);
    soxr_error_t Error = nullptr;
    Resampler_.reset(soxr_create(FromHz, ToHz, static_cast<unsigned>(Channels), &Error, &Io,
                                 &Quality, &OneThread));
    Require(Error);
    Resampled_.resize(StepFrames * Channels_);
}

void RateConverter::Convert(std::span<const double> Frames, const Output& Out) {
    if (!Resampler_) return Out(Frames);
    while (!Frames.empty()) {
        std::size_t Made = 0;
        const std::size_t Taken = Step(Frames.data(), Frames.size() / Channels_, Out, Made);
        Frames = Frames.subspan(Taken * Channels_);
    }
}

void RateConverter::Flush(const Output& Out) {
    for (std::size_t Made = Resampler_ ? 1 : 0; Made > 0;)
        Step(nullptr, 0, Out, Made);
}

std::size_t RateConverter::Step(const double* From, std::size_t Frames, const Output& Out,
                                std::size_t& Made) {
    std::size_t Taken = 0;
    Require(
        soxr_process(Resampler_.get(), From, Frames, &Taken, Resampled_.data(), StepFrames, &Made));
    if (Made > 0) Out(std::span(Resampled_).first(Made * Channels_));
    return Taken;
}

}  // namespace Tolvar
