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

OutputConverter::OutputConverter(StreamFormat TheFrom, StreamFormat TheTo)
    : FromOf(TheFrom), To(TheTo) {
    if (FromOf.RateHz == To.RateHz) return;
    soxr_io_spec_t Io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
    Io.flags |= SOXR_NO_DITHER;  // dither is seeded by the time of day: no two runs were alike
    const soxr_quality_spec_t Quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t OneThread = soxr_runtime_spec(1);
    soxr_error_t Error = nullptr;
    Resampler.reset(soxr_create(FromOf.RateHz, To.RateHz, static_cast<unsigned>(To.Channels),
                                &Error, &Io, &Quality, &OneThread));
    CheckResampler(Error, FromOf, To);
    Resampled.resize(PieceFrames * Width(To));
}

OutputConverter::~OutputConverter() = default;

void OutputConverter::Convert(std::span<const std::int16_t> Samples, const Output& Out) {
    if (FromOf == To) return Out(Samples);
    const std::size_t PieceSamples = PieceFrames * Width(FromOf);
    while (!Samples.empty()) {
        const auto Piece = Samples.first(std::min(PieceSamples, Samples.size()));
        Samples = Samples.subspan(Piece.size());
        const auto Ready = ToOutputChannels(Piece);
        if (Resampler) {
            Resample(Ready, Out);
        } else {
            Out(Ready);
        }
    }
}

void OutputConverter::Flush(const Output& Out) {
    for (std::size_t Made = Resampler ? 1 : 0; Made > 0;)
        ResampleOnce(nullptr, 0, Out, Made);
}

std::span<const std::int16_t> OutputConverter::ToOutputChannels(
    std::span<const std::int16_t> Samples) {
    if (FromOf.Channels == To.Channels) return Samples;
    Mixed.clear();
    if (To.Channels == 2) {
        for (const std::int16_t Each : Samples)
            Mixed.insert(Mixed.end(), 2, Each);
    } else {
        for (std::size_t I = 0; I < Samples.size(); I += 2) {
            const double Mean = (Samples[I] + Samples[I + 1]) / 2.0;
            Mixed.push_back(static_cast<std::int16_t>(Round32(Mean)));
        }
    }
    return Mixed;
}

void OutputConverter::Resample(std::span<const std::int16_t> Samples, const Output& Out) {
    while (!Samples.empty()) {
        std::size_t Made = 0;
        const std::size_t Taken =
            ResampleOnce(Samples.data(), Samples.size() / Width(To), Out, Made);
        Samples = Samples.subspan(Taken * Width(To));
    }
}

std::size_t OutputConverter::ResampleOnce(const std::int16_t* Samples, std::size_t Frames,
                                          const Output& Out, std::size_t& Made) {
    std::size_t Taken = 0;
    CheckResampler(soxr_process(Resampler.get(), Samples, Frames, &Taken, Resampled.data(),
                                PieceFrames, &Made),
                   FromOf, To);
    if (Made > 0) Out(std::span(Resampled).first(Made * Width(To)));
    return Taken;
}

}  // namespace Tolvar
