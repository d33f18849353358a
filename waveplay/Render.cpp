#include "waveplay/Commands.h"

namespace Tolvar {

ExitCode Render(RenderOptions Options) {
    const Wave Whole = JoinPieces(Options.Pieces);
    Options.Setup.VirtualClock = true;
    Options.Setup.Device = "wav:" + Options.OutPath;

    Session Rendering(Options.Setup);
    {
        PlayRun Run(Rendering);
        Run.Start(Whole, Options.Run);
        if (!Run.Finish()) return ExitInterrupted;
    }
    Rendering.Release();
    Rendering.Finish();
    return ExitDone;
}

}  // namespace Tolvar
