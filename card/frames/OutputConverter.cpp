#include "card/frames/OutputConverter.h"

#include <soxr.h>

#include <algorithm>
#include <string>

#include "platform/Checked.h"

namespace Tolvar {
namespace {

constexpr std::size_t PieceFrames = 8192;

void CheckResampler(soxr_error_t Error, StreamFormat From, StreamFormat To) {
    if (Error == nullptr) return;
    throw RuntimeFailure(FailureKind::Device, "cannot resample " + std::to_string(From.RateHz) +
                                                  " Hz to " + std::to_string(To.RateHz) +
                                                  " Hz: " + Error);
}

std::size_t Width(StreamFormat Format) {
    return static_cast<std::size_t>(Format.Channels);
}

}  // namespace

void OutputConverter::FreeResampler::operator()(soxr* Held) const {
    soxr_delete(Held);
}

OutputConverter::OutputConverter(StreamFormat From, StreamFormat To) : From_(From), To_(To) {
    if (From_.RateHz == To_.RateHz) return;
    soxr_io_spec_t Io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
    Io.flags |= SOXR_NO_DITHER;  // dither is seeded by the time of day: no two runs were alike
    const soxr_quality_spec_t Quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t OneThread = soxr_runtime_spec(1);
    soxr_error_t Error = nullptr;
    Resampler_.reset(soxr_create(From_.RateHz, To_.RateHz, static_cast<unsigned>(To_.Channels),
                                 &Error, &Io, &Quality, &OneThread));
    CheckResampler(Error, From_, To_);
    Resampled_.resize(PieceFrames * Width(To_));
}

OutputConverter::~OutputConverter() = default;

void OutputConverter::Convert(std::span<const std::int16_t> Samples, const Output& Out) {
    if (From_ == To_) return Out(Samples);
    const std::size_t PieceSamples = PieceFrames * Width(From_);
    while (!Samples.empty()) {
        const auto Piece = Samples.first(std::min(PieceSamples, Samples.size()));
        Samples = Samples.subspan(Piece.size());
        const auto Ready = ToOutputChannels(Piece);
        if (Resampler_) {
            Resample(Ready, Out);
        } else {
            Out(Ready);
        }
    }
}

void OutputConverter::Flush(const Output& Out) {
    for (std::size_t Made = Resampler_ ? 1 : 0; Made > 0;)
        ResampleOnce(nullptr, 0, Out, Made);
}

std::span<const std::int16_t> OutputConverter::ToOutputChannels(
    std::span<const std::int16_t> Samples) {
    if (From_.Channels == To_.Channels) return Samples;
    Mixed_.clear();
    if (To_.Channels == 2) {
        for (const std::int16_t Each : Samples)
            Mixed_.insert(Mixed_.end(), 2, Each);
    } else {
        for (std::size_t I = 0; I < Samples.size(); I += 2) {
            const double Mean = (Samples[I] + Samples[I + 1]) / 2.0;
            Mixed_.push_back(static_cast<std::int16_t>(Round32(Mean)));
        }
    }
    return Mixed_;
}

void OutputConverter::Resample(std::span<const std::int16_t> Samples, const Output& Out) {
    while (!Samples.empty()) {
        std::size_t Made = 0;
        const std::size_t Taken =
            ResampleOnce(Samples.data(), Samples.size() / Width(To_), Out, Made);
        Samples = Samples.subspan(Taken * Width(To_));
    }
}

std::size_t OutputConverter::ResampleOnce(const std::int16_t* Samples, std::size_t Frames,
                                          const Output& Out, std::size_t& Made) {
    std::size_t Taken = 0;
    CheckResampler(soxr_process(Resampler_.get(), Samples, Frames, &Taken, Resampled_.data(),
                                PieceFrames, &Made),
                   From_, To_);
    if (Made > 0) Out(std::span(Resampled_).first(Made * Width(To_)));
    return Taken;
}

}  // namespace Tolvar
