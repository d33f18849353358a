#include "waveplay/wave/Pieces.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <utility>

#include "platform/RuntimeFailure.h"
#include "store/BlockRec.h"
#include "waveplay/files/WorkFolder.h"
#include "waveplay/wave/PieceSource.h"

namespace Tolvar {
namespace {

// The store takes names that differ only in their letter case for one file. A file whose path
// does so against an earlier one is named by a longer path to the same place.
class DistinctNames {
  public:
    std::string For(const std::string& FullPath) {
        std::string Folded(FullPath);
        std::transform(Folded.begin(), Folded.end(), Folded.begin(), [](unsigned char Letter) {
            return static_cast<char>(std::tolower(Letter));
        });
        std::vector<std::string>& Alike = Seen_[Folded];
        const auto Found = std::find(Alike.begin(), Alike.end(), FullPath);
        const auto Place = static_cast<std::size_t>(Found - Alike.begin());
        if (Found == Alike.end()) Alike.push_back(FullPath);
        std::string Name = FullPath;
        for (std::size_t Step = 0; Step < Place; ++Step)
            Name.insert(0, "/.");
        return Name;
    }

  private:
    std::map<std::string, std::vector<std::string>> Seen_;
};

StreamFormat FormatOf(const Wave& Whole) {
    return {Whole.FmtChannal, Whole.FmtFriq};
}

void RequireRoom(double Frames) {
    if (Frames > std::numeric_limits<std::int32_t>::max()) {
        throw RuntimeFailure(FailureKind::Input,
                             "the pieces are longer than 2147483647 frames together");
    }
}

void Append(Wave& Whole, const EntryPair& Both) {
    const std::int32_t Len = Both.first.Len;
    if (Len == 0) return;
    Whole.Left.Append(Both.first);
    if (Whole.FmtChannal == 2) Whole.Right.Append(Both.second);
    Whole.WaveNos += Len;
}

// The pieces of one wave on their way into its block lists.
class Joining {
  public:
    explicit Joining(const std::vector<std::string>& Pieces);
    Wave Run();

  private:
    struct Part {
        PieceName Piece;
        PieceSource* Source;  // null: silence
        FrameRange Frames;    // of the source
    };

    PieceSource* SourceOf(const std::string& Path);
    void ChooseFormat();
    bool AllInPlace(std::int32_t Bits) const;
    bool InPlace(const Part& Each, std::int32_t Bits) const;
    double FramesOf(const Part& Each) const;
    void DecodeTheRest();
    EntryPair EntriesOf(const Part& Each);

    std::map<std::string, PieceSource> Sources_;  // by full path
    std::vector<Part> Parts_;
    DistinctNames Names_;
    Wave Whole_;
};

Joining::Joining(const std::vector<std::string>& Pieces) {
    for (const std::string& Each : Pieces) {
        const PieceName Piece = ParsePiece(Each);
        PieceSource* const Source = Piece.Silence ? nullptr : SourceOf(Piece.Path);
        Parts_.push_back({Piece, Source, Source ? Source->FramesOf(Piece) : FrameRange{}});
    }
}

PieceSource* Joining::SourceOf(const std::string& Path) {
    const auto Key = std::filesystem::absolute(Path).lexically_normal().string();
    const auto Known = Sources_.find(Key);
    if (Known != Sources_.end()) return &Known->second;
    return &Sources_.emplace(Key, PieceSource(Path)).first->second;
}

Wave Joining::Run() {
    ChooseFormat();
    double Frames = 0;
    for (const Part& Each : Parts_)
        Frames += FramesOf(Each);
    RequireRoom(Frames);

    DecodeTheRest();
    for (const Part& Each : Parts_)
        Append(Whole_, EntriesOf(Each));
    return std::move(Whole_);
}

// The first file's rate and channels. A wave is of 8 bits when nothing of it needs decoding, since
// work files are of 16.
void Joining::ChooseFormat() {
    const auto First =
        std::find_if(Parts_.begin(), Parts_.end(), [](const Part& Each) { return Each.Source; });
    if (First == Parts_.end()) return;
    Whole_.FmtFriq = First->Source->RateHz();
    Whole_.FmtChannal = std::min(First->Source->Channels(), 2);
    constexpr std::int32_t Eight = 8;
    if (AllInPlace(Eight)) Whole_.FmtBits = Eight;
}

bool Joining::AllInPlace(std::int32_t Bits) const {
    return std::all_of(Parts_.begin(), Parts_.end(), [&](const Part& Each) {
        return Each.Source == nullptr || InPlace(Each, Bits);
    });
}

bool Joining::InPlace(const Part& Each, std::int32_t Bits) const {
    return Each.Source->PlaysInPlace(Each.Frames, FormatOf(Whole_), Bits);
}

double Joining::FramesOf(const Part& Each) const {
    if (Each.Source == nullptr) return std::nearbyint(*Each.Piece.Silence * Whole_.FmtFriq);
    const int Rate = Each.Source->RateHz();
    return static_cast<double>(FramesAtRate(Each.Frames.To, Rate, Whole_.FmtFriq) -
                               FramesAtRate(Each.Frames.From, Rate, Whole_.FmtFriq));
}

void Joining::DecodeTheRest() {
    std::vector<PieceSource*> Order;
    for (const Part& Each : Parts_) {
        if (Each.Source == nullptr || InPlace(Each, Whole_.FmtBits)) continue;
        Each.Source->Want(Each.Frames);
        Order.push_back(Each.Source);
    }
    if (Order.empty()) return;
    Whole_.Decoded = std::make_shared<WorkFolder>();
    for (PieceSource* const Source : Order)
        Source->DecodeWanted(FormatOf(Whole_), *Whole_.Decoded);
}

EntryPair Joining::EntriesOf(const Part& Each) {
    if (Each.Source == nullptr) {
        const BlockEntry Silence{.Code = BlkSilent,
                                 .Len = static_cast<std::int32_t>(FramesOf(Each))};
        return {Silence, Silence};
    }
    if (!InPlace(Each, Whole_.FmtBits)) {
        return Each.Source->DecodedEntries(Each.Frames, FormatOf(Whole_));
    }
    const WavSource& File = *Each.Source->Place();
    return EntriesInPlace(File, Each.Frames, Names_.For(File.FullPath));
}

}  // namespace

Wave JoinPieces(const std::vector<std::string>& Pieces) {
    return Joining(Pieces).Run();
}

Wave WaveOf(const WavSource& Source) {
    Wave Whole;
    Whole.FmtBits = Source.Bits;
    Whole.FmtChannal = Source.Channels;
    Whole.FmtFriq = Source.Rate;
    Append(Whole, EntriesInPlace(Source, {0, Source.Frames}, Source.FullPath));
    return Whole;
}

}  // namespace Tolvar
