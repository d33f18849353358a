#pragma once

namespace Tolvar {

/// What the program answers to the shell.
enum ExitCode : int {
    ExitDone = 0,
    ExitFailed = 1,  ///< playback or a file failed
    ExitUsage = 2,
    ExitInterrupted = 130,  ///< SIGINT or SIGTERM
};

}  // namespace Tolvar
