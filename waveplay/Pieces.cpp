#include "waveplay/Pieces.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <string_view>

#include "platform/RuntimeFailure.h"
#include "store/BlockRec.h"
#include "waveplay/ParseNumber.h"
#include "waveplay/PlayerPort.h"

namespace Tolvar {
namespace {

constexpr std::string_view SilencePrefix = "silence:";

[[noreturn]] void Refuse(const std::string& Why) {
    throw RuntimeFailure(FailureKind::Input, Why);
}

double SilenceSeconds(const std::string& Piece) {
    const auto Seconds = ParseNumber<double>(std::string_view(Piece).substr(SilencePrefix.size()));
    if (!Seconds || !std::isfinite(*Seconds) || *Seconds < 0) {
        Refuse(Piece + ": not a length in seconds");
    }
    return *Seconds;
}

// The store takes names that differ only in their letter case for one file. A file whose path
// does so against an earlier one is named by a longer path to the same place.
class DistinctNames {
  public:
    std::string For(const std::string& FullPath) {
        std::string Folded(FullPath);
        std::transform(Folded.begin(), Folded.end(), Folded.begin(), [](unsigned char Letter) {
            return static_cast<char>(std::tolower(Letter));
        });
        std::vector<std::string>& Alike = Seen[Folded];
        const auto Found = std::find(Alike.begin(), Alike.end(), FullPath);
        const auto Place = static_cast<std::size_t>(Found - Alike.begin());
        if (Found == Alike.end()) Alike.push_back(FullPath);
        std::string Name = FullPath;
        for (std::size_t Step = 0; Step < Place; ++Step)
            Name.insert(0, "/.");
        return Name;
    }

  private:
    std::map<std::string, std::vector<std::string>> Seen;
};

void RequireRoom(const Wave& Whole, double Frames) {
    if (Whole.WaveNos + Frames > std::numeric_limits<std::int32_t>::max()) {
        Refuse("the pieces are longer than 2147483647 frames together");
    }
}

void AppendBoth(Wave& Whole, BlockEntry Entry) {
    if (Entry.Len == 0) return;
    RequireRoom(Whole, Entry.Len);
    Whole.Left.Append(Entry);
    if (Whole.FmtChannal == 2) {
        Entry.FilePos += Whole.FmtBits / 8;
        Whole.Right.Append(Entry);
    }
    Whole.WaveNos += Entry.Len;
}

void AppendSilence(Wave& Whole, const std::string& Piece) {
    const double Frames = std::nearbyint(SilenceSeconds(Piece) * Whole.FmtFriq);
    RequireRoom(Whole, Frames);
    AppendBoth(Whole, {.Code = BlkSilent, .Len = static_cast<std::int32_t>(Frames)});
}

void AppendFile(Wave& Whole, const WavSource& Source, const std::string& Name) {
    AppendBoth(Whole, {.Code = BlkOrgFile,
                       .Len = Source.Frames,
                       .FilePos = Source.DataPos,
                       .Channels = Source.Channels,
                       .Bits = Source.Bits,
                       .Name = Name});
}

void TakeFormat(Wave& Whole, const WavSource& Source) {
    Whole.FmtBits = Source.Bits;
    Whole.FmtChannal = Source.Channels;
    Whole.FmtFriq = Source.Rate;
}

std::string FormatText(const WavSource& Source) {
    return std::to_string(Source.Rate) + " Hz, " + std::to_string(Source.Bits) + " bits, " +
           (Source.Channels == 1 ? "mono" : "stereo");
}

void RequireSameFormat(const WavSource& First, const WavSource& Other) {
    if (First.Rate == Other.Rate && First.Bits == Other.Bits && First.Channels == Other.Channels) {
        return;
    }
    Refuse(Other.FullPath + " (" + FormatText(Other) + ") cannot be joined to " + First.FullPath +
           " (" + FormatText(First) + "): pieces need one rate, sample size and channel count");
}

bool IsSilence(const std::string& Piece) {
    return Piece.starts_with(SilencePrefix);
}

}  // namespace

Wave JoinPieces(const std::vector<std::string>& Pieces) {
    std::vector<std::optional<WavSource>> Sources;
    std::optional<WavSource> First;
    for (const std::string& Piece : Pieces) {
        Sources.push_back(IsSilence(Piece) ? std::nullopt : std::optional(OpenWav(Piece)));
        if (!Sources.back()) continue;
        if (!First) First = Sources.back();
        RequireSameFormat(*First, *Sources.back());
    }

    Wave Whole;
    DistinctNames Names;
    if (First) TakeFormat(Whole, *First);
    for (std::size_t Index = 0; Index < Pieces.size(); ++Index) {
        if (const auto& Source = Sources[Index]) {
            AppendFile(Whole, *Source, Names.For(Source->FullPath));
        } else {
            AppendSilence(Whole, Pieces[Index]);
        }
    }
    return Whole;
}

Wave WaveOf(const WavSource& Source) {
    Wave Whole;
    TakeFormat(Whole, Source);
    AppendFile(Whole, Source, Source.FullPath);
    return Whole;
}

void HandOver(PlayerPort& Player, const Wave& Whole) {
    Player.WriteWaveMemo(Whole.FmtBits, Whole.FmtChannal, Whole.FmtFriq, Whole.WaveNos,
                         Whole.Left.Values(), Whole.Right.Values());
}

}  // namespace Tolvar
