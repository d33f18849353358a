#include "waveplay/sound/Decoder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "waveplay/sound/ChannelMix.h"
#include "waveplay/sound/DecodeProgress.h"
#include "waveplay/sound/Quantise.h"
#include "waveplay/sound/RateConverter.h"

namespace Tolvar {
namespace {

constexpr std::int64_t PieceFrames = 4096;

// One range on its way from the sound file into its work files.
class Decoding {
  public:
    Decoding(SoundFile& TheSound, FrameRange TheRange, StreamFormat TheWave, WorkFolder& Folder);
    DecodedRange Run();

  private:
    void ReadRange(const RateConverter::Output& Out);
    void EndEarly();
    void Write(std::span<const double> Ready);
    void WriteChannel(std::span<const double> Ready, std::size_t Channel);
    void FillUp();

    SoundFile& Sound;
    FrameRange Range;
    StreamFormat Wave;
    std::int64_t Next;        // frame of the sound file
    std::int64_t Origin;      // where its first would lie in the whole file at the wave's rate
    std::int64_t Expected;    // frames at the wave's rate
    std::int64_t Frames = 0;  // written
    std::size_t Channels;
    ChannelMix Mixer;
    RateConverter Converter;
    bool Dithers;
    std::vector<WorkFileWriter> Files;  // one for each of Channels
    std::vector<double> Read;
    std::vector<std::int16_t> Samples;
};

Decoding::Decoding(SoundFile& TheSound, FrameRange TheRange, StreamFormat TheWave,
                   WorkFolder& Folder)
    : Sound(TheSound),
      Range(TheRange),
      Wave(TheWave),
      Next(Range.From),
      Origin(FramesAtRate(Range.From, Sound.RateHz(), Wave.RateHz)),
      Expected(FramesAtRate(Range.To, Sound.RateHz(), Wave.RateHz) - Origin),
      // Both channels of a mono file are one and the same.
      Channels(Sound.Channels() == 1 ? 1 : static_cast<std::size_t>(Wave.Channels)),
      Mixer(Sound.Channels(), static_cast<int>(Channels)),
      Converter(Sound.RateHz(), Wave.RateHz, static_cast<int>(Channels)),
      Dithers(Sound.BeyondSixteenBits() || Mixer.Weighs() || Sound.RateHz() != Wave.RateHz),
      Read(static_cast<std::size_t>(PieceFrames * Sound.Channels())) {
    for (std::size_t Channel = 0; Channel < Channels; ++Channel)
        Files.emplace_back(Folder.NextFile(), Expected, Sound.Path());
}

DecodedRange Decoding::Run() {
    const auto Out = [this](std::span<const double> Ready) { Write(Ready); };
    ReadRange(Out);
    if (Next < Range.To) EndEarly();
    Converter.Flush(Out);
    FillUp();
    for (WorkFileWriter& Each : Files)
        Each.Finish();
    return {Frames, Files.front().Path(), Files.back().Path()};
}

void Decoding::ReadRange(const RateConverter::Output& Out) {
    DecodeProgress Progress(Sound.Path(), Range.To - Range.From);
    const auto Width = static_cast<std::size_t>(Sound.Channels());
    Sound.GoTo(Range.From);
    for (std::size_t Got = 1; Next < Range.To && Got > 0;) {
        const auto Wanted = static_cast<std::size_t>(std::min(PieceFrames, Range.To - Next));
        Got = Sound.Read(std::span(Read).first(Wanted * Width));
        Converter.Convert(Mixer.Mix(std::span(Read).first(Got * Width)), Out);
        Next += static_cast<std::int64_t>(Got);
        Progress.Reached(Next - Range.From);
    }
}

// A file that was cut off plays as far as it goes.
void Decoding::EndEarly() {
    std::fprintf(stderr, "%s ends %lld frames before its header says: playing what is there\n",
                 Sound.Path().c_str(), static_cast<long long>(Range.To - Next));
    Expected = FramesAtRate(Next, Sound.RateHz(), Wave.RateHz) - Origin;
}

void Decoding::Write(std::span<const double> Ready) {
    const std::int64_t Room = std::max<std::int64_t>(0, Expected - Frames);
    const std::size_t Taken = std::min(Ready.size() / Channels, static_cast<std::size_t>(Room));
    for (std::size_t Channel = 0; Channel < Channels; ++Channel)
        WriteChannel(Ready.first(Taken * Channels), Channel);
    Frames += static_cast<std::int64_t>(Taken);
}

void Decoding::WriteChannel(std::span<const double> Ready, std::size_t Channel) {
    Samples.clear();
    std::int64_t Place = Origin + Frames;
    for (std::size_t Index = Channel; Index < Ready.size(); Index += Channels) {
        const double Noise = Dithers ? DitherNoise(Place++, Channel) : 0;
        Samples.push_back(Quantise(Ready[Index], Noise));
    }
    Files[Channel].Append(Samples);
}

// The resampler may end a frame short of what the positions of the cuts are counted by.
void Decoding::FillUp() {
    const std::vector<double> Silence(Channels);
    while (Frames < Expected)
        Write(Silence);
}

}  // namespace

std::int64_t FramesAtRate(std::int64_t Frames, int FromHz, int ToHz) {
    if (FromHz == ToHz) return Frames;
    return std::llrint(static_cast<double>(Frames) * ToHz / FromHz);
}

DecodedRange Decode(SoundFile& Sound, FrameRange Range, StreamFormat Wave, WorkFolder& Folder) {
    return Decoding(Sound, Range, Wave, Folder).Run();
}

}  // namespace Tolvar
