#include "waveplay/wave/DemoPhrase.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "store/BlockRec.h"
#include "waveplay/files/WorkFolder.h"

namespace Tolvar {
namespace {

constexpr std::int32_t Rate = 44100;
constexpr std::int32_t PhraseFrames = 4 * Rate;

struct Note {
    double StartSeconds;
    double Hertz;
    double Pan;  // 0 left .. 1 right
};

// A rising broken chord that comes to rest; each note rings on into the next ones.
constexpr std::array Notes{
    Note{0.00, 261.63, 0.15}, Note{0.40, 329.63, 0.35}, Note{0.80, 392.00, 0.60},
    Note{1.20, 493.88, 0.85}, Note{1.60, 440.00, 0.65}, Note{2.00, 392.00, 0.40},
    Note{2.40, 523.25, 0.50}, Note{2.40, 196.00, 0.50},
};

// A struck string: a soft attack, then the higher partials die away first.
double Ring(double Hertz, double Seconds) {
    constexpr double AttackSeconds = 0.008;
    double Sum = 0;
    for (int Partial = 1; Partial <= 4; ++Partial) {
        Sum += std::sin(2 * std::numbers::pi * Hertz * Partial * Seconds) *
               std::exp(-2.2 * Partial * Seconds) / (Partial * Partial);
    }
    return Sum * std::min(1.0, Seconds / AttackSeconds);
}

std::int16_t PhraseSample(std::int32_t Frame, bool Right) {
    constexpr double Loudness = 9000;
    constexpr double FadeSeconds = 0.25;
    const double Now = static_cast<double>(Frame) / Rate;
    double Sum = 0;
    for (const Note& Played : Notes) {
        if (Now < Played.StartSeconds) continue;
        const double Share = Right ? Played.Pan : 1 - Played.Pan;
        Sum += std::sqrt(Share) * Ring(Played.Hertz, Now - Played.StartSeconds);
    }
    const double Left = static_cast<double>(PhraseFrames - Frame) / Rate;
    return static_cast<std::int16_t>(Loudness * Sum * std::min(1.0, Left / FadeSeconds));
}

void WriteChannel(const std::string& Path, bool Right) {
    std::vector<std::int16_t> Samples;
    Samples.reserve(PhraseFrames);
    for (std::int32_t Frame = 0; Frame < PhraseFrames; ++Frame)
        Samples.push_back(PhraseSample(Frame, Right));
    WorkFileWriter Out(Path, PhraseFrames, "the phrase");
    Out.Append(Samples);
    Out.Finish();
}

BlockEntry WorkFile(const std::string& Path) {
    return {.Code = BlkFile, .Len = PhraseFrames, .Name = Path};
}

}  // namespace

DemoPhrase::DemoPhrase() {
    Whole_.FmtFriq = Rate;
    Whole_.WaveNos = PhraseFrames;
    Whole_.Decoded = std::make_shared<WorkFolder>();
    for (const bool Right : {false, true}) {
        const std::string Path = Whole_.Decoded->NextFile();
        WriteChannel(Path, Right);
        (Right ? Whole_.Right : Whole_.Left).Append(WorkFile(Path));
    }
}

}  // namespace Tolvar
