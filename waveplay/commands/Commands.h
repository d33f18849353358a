#pragma once

#include <string>
#include <vector>

#include "waveplay/files/ExitCodes.h"
#include "waveplay/player/PlayRun.h"
#include "waveplay/player/Session.h"

namespace Tolvar {

struct PlayOptions {
    std::vector<std::string> Pieces;  ///< none: the program's own phrase
    bool Quiet = false;               ///< neither picture nor lines, but for failures
    SessionOptions Setup;
    RunOptions Run;
};

struct RenderOptions {
    std::vector<std::string> Pieces;
    std::string OutPath;   ///< "-" = standard output
    SessionOptions Setup;  ///< its device and clock are the command's own
    RunOptions Run;
};

struct ScriptOptions {
    std::string Path = "-";  ///< "-" = standard input
    bool Strict = false;
    SessionOptions Setup;
};

/// Plays to the end, with a picture on a terminal, else with progress lines on standard error.
/// RuntimeFailure when it cannot.
ExitCode Play(PlayOptions Options);

/// Leaves the recording at OutPath or, on a failure (RuntimeFailure) or an interrupt, nothing new.
ExitCode Render(RenderOptions Options);

/// Runs a session in text; see docs/console.md. RuntimeFailure when the script cannot be read or
/// its recording was lost.
ExitCode Script(const ScriptOptions& Options);

}  // namespace Tolvar
