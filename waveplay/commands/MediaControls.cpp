#include "waveplay/commands/MediaControls.h"

#include <filesystem>
#include <utility>

#include "waveplay/wave/PieceName.h"

namespace Tolvar {

std::string TitleOf(const std::vector<std::string>& Pieces) {
    if (Pieces.empty()) return "a phrase of its own";
    const std::size_t More = Pieces.size() - 1;
    return Pieces.front() + (More == 0 ? "" : " + " + std::to_string(More));
}

std::unique_ptr<Mpris> OfferMediaControls(Session& Playing, PlayerControl& Player,
                                          const PlayOptions& Options,
                                          std::function<void()> OnQuit) {
    if (Options.Setup.VirtualClock) return nullptr;
    MprisFacts Facts{.Title = TitleOf(Options.Pieces), .Url = {}};
    if (Options.Pieces.size() == 1) {
        const PieceName Piece = ParsePiece(Options.Pieces.front());
        if (!Piece.Silence) {
            Facts.Url = FileUrl(Piece.Path);
            Facts.Title = std::filesystem::path(Options.Pieces.front()).filename().string();
        }
    }
    return std::make_unique<Mpris>(Playing.Home(), Player, std::move(Facts), std::move(OnQuit));
}

}  // namespace Tolvar
