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
    Decoding(SoundFile& Sound, FrameRange Range, StreamFormat Wave, WorkFolder& Folder);
    DecodedRange Run();

  private:
    void ReadRange(const RateConverter::Output& Out);
    void EndEarly();
    void Write(std::span<const double> Ready);
    void WriteChannel(std::span<const double> Ready, std::size_t Channel);
    void FillUp();

    SoundFile& Sound_;
    FrameRange Range_;
    StreamFormat Wave_;
    std::int64_t Next_;        // frame of the sound file
    std::int64_t Origin_;      // where its first would lie in the whole file at the wave's rate
    std::int64_t Expected_;    // frames at the wave's rate
    std::int64_t Frames_ = 0;  // written
    std::size_t Channels_;
    ChannelMix Mixer_;
    RateConverter Converter_;
    bool Dithers_;
    std::vector<WorkFileWriter> Files_;  // one for each of Channels
    std::vector<double> Read_;
    std::vector<std::int16_t> Samples_;
};

Decoding::Decoding(SoundFile& Sound, FrameRange Range, StreamFormat Wave, WorkFolder& Folder)
    : Sound_(Sound),
      Range_(Range),
      Wave_(Wave),
      Next_(Range_.From),
      Origin_(FramesAtRate(Range_.From, Sound_.RateHz(), Wave_.RateHz)),
      Expected_(FramesAtRate(Range_.To, Sound_.RateHz(), Wave_.RateHz) - Origin_),
      // Both channels of a mono file are one and the same.
      Channels_(Sound_.Channels() == 1 ? 1 : static_cast<std::size_t>(Wave_.Channels)),
      Mixer_(Sound_.Channels(), static_cast<int>(Channels_)),
      Converter_(Sound_.RateHz(), Wave_.RateHz, static_cast<int>(Channels_)),
      Dithers_(Sound_.BeyondSixteenBits() || Mixer_.Weighs() || Sound_.RateHz() != Wave_.RateHz),
      Read_(static_cast<std::size_t>(PieceFrames * Sound_.Channels())) {
    for (std::size_t Channel = 0; Channel < Channels_; ++Channel)
        Files_.emplace_back(Folder.NextFile(), Expected_, Sound_.Path());
}

DecodedRange Decoding::Run() {
    const auto Out = [this](std::span<const double> Ready) { Write(Ready); };
    ReadRange(Out);
    if (Next_ < Range_.To) EndEarly();
    Converter_.Flush(Out);
    FillUp();
    for (WorkFileWriter& Each : Files_)
        Each.Finish();
    return {Frames_, Files_.front().Path(), Files_.back().Path()};
}

void Decoding::ReadRange(const RateConverter::Output& Out) {
    DecodeProgress Progress(Sound_.Path(), Range_.To - Range_.From);
    const auto Width = static_cast<std::size_t>(Sound_.Channels());
    Sound_.GoTo(Range_.From);
    for (std::size_t Got = 1; Next_ < Range_.To && Got > 0;) {
        const auto Wanted = static_cast<std::size_t>(std::min(PieceFrames, Range_.To - Next_));
        Got = Sound_.Read(std::span(Read_).first(Wanted * Width));
        Converter_.Convert(Mixer_.Mix(std::span(Read_).first(Got * Width)), Out);
        Next_ += static_cast<std::int64_t>(Got);
        Progress.Reached(Next_ - Range_.From);
    }
}

// A file that was cut off plays as far as it goes.
void Decoding::EndEarly() {
    std::fprintf(stderr, "%s ends %lld frames before its header says: playing what is there\n",
                 Sound_.Path().c_str(), static_cast<long long>(Range_.To - Next_));
    Expected_ = FramesAtRate(Next_, Sound_.RateHz(), Wave_.RateHz) - Origin_;
}

void Decoding::Write(std::span<const double> Ready) {
    const std::int64_t Room = std::max<std::int64_t>(0, Expected_ - Frames_);
    const std::size_t Taken = std::min(Ready.size() / Channels_, static_cast<std::size_t>(Room));
    for (std::size_t Channel = 0; Channel < Channels_; ++Channel)
        WriteChannel(Ready.first(Taken * Channels_), Channel);
    Frames_ += static_cast<std::int64_t>(Taken);
}

void Decoding::WriteChannel(std::span<const double> Ready, std::size_t Channel) {
    Samples_.clear();
    std::int64_t Place = Origin_ + Frames_;
    for (std::size_t Index = Channel; Index < Ready.size(); Index += Channels_) {
        const double Noise = Dithers_ ? DitherNoise(Place++, Channel) : 0;
        Samples_.push_back(Quantise(Ready[Index], Noise));
    }
    Files_[Channel].Append(Samples_);
}

// The resampler may end a frame short of what the positions of the cuts are counted by.
void Decoding::FillUp() {
    const std::vector<double> Silence(Channels_);
    while (Frames_ < Expected_)
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
