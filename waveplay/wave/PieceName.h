#pragma once

#include <optional>
#include <string>

namespace Tolvar {

/// What a PIECE of the command line asks for: a length of silence, or a file or a cut out of it.
struct PieceName {
    std::string Text;                    ///< as it was given
    std::optional<double> Silence = {};  ///< seconds, 0 or more; none: a file
    std::string Path = {};               ///< of the file
    double From = 0;                     ///< seconds, 0 or more
    std::optional<double> To = {};       ///< seconds, not before From; none: the file's end
};

/// "silence:SECONDS", "FILE" or "FILE[FROM:TO]" with either end left open. A name in brackets
/// that exists as it stands is a file. RuntimeFailure(Input) for lengths and ranges that are none.
PieceName ParsePiece(const std::string& Text);

}  // namespace Tolvar
