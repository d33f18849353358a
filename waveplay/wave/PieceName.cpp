#include "waveplay/wave/PieceName.h"

#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/RuntimeFailure.h"
#include "waveplay/files/ParseNumber.h"

namespace Tolvar {
namespace {

constexpr std::string_view SilencePrefix = "silence:";

[[noreturn]] void Refuse(const std::string& Why) {
    throw RuntimeFailure(FailureKind::Input, Why);
}

std::optional<double> Seconds(std::string_view Text) {
    constexpr double Most = 1e12;
    const auto Value = ParseNumber<double>(Text);
    return Value && *Value >= 0 && *Value < Most ? Value : std::nullopt;
}

double Edge(const std::string& Piece, std::string_view Text) {
    const auto Value = Seconds(Text);
    if (!Value) Refuse(Piece + ": \"" + std::string(Text) + "\" is not a time in seconds");
    return *Value;
}

bool Exists(const std::string& Path) {
    std::error_code Ignored;
    return std::filesystem::exists(Path, Ignored);
}

PieceName Cut(const std::string& Text, std::size_t Bracket, std::size_t Colon) {
    const std::string_view Whole(Text);
    const std::string_view From = Whole.substr(Bracket + 1, Colon - Bracket - 1);
    const std::string_view To = Whole.substr(Colon + 1, Whole.size() - Colon - 2);
    PieceName Piece{.Text = Text, .Path = Text.substr(0, Bracket)};
    if (!From.empty()) Piece.From = Edge(Text, From);
    if (!To.empty()) Piece.To = Edge(Text, To);
    if (Piece.To && *Piece.To < Piece.From) Refuse(Text + ": the cut ends before it begins");
    return Piece;
}

}  // namespace

PieceName ParsePiece(const std::string& Text) {
    if (Text.starts_with(SilencePrefix)) {
        const auto Length = Seconds(std::string_view(Text).substr(SilencePrefix.size()));
        if (!Length) Refuse(Text + ": not a length in seconds");
        return {.Text = Text, .Silence = Length};
    }
    const std::size_t Bracket = Text.ends_with(']') ? Text.rfind('[') : std::string::npos;
    const std::size_t Colon = Bracket == std::string::npos ? Bracket : Text.find(':', Bracket);
    if (Colon == std::string::npos || Exists(Text)) return {.Text = Text, .Path = Text};
    return Cut(Text, Bracket, Colon);
}

}  // namespace Tolvar
