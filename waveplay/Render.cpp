#include <cmath>
#include <memory>
#include <utility>

#include "waveplay/Commands.h"
#include "waveplay/TrimmedSink.h"

namespace Tolvar {

ExitCode Render(RenderOptions Options) {
    const Wave Whole = JoinPieces(Options.Pieces);
    const Session* Playing = nullptr;
    // Asked when the first frames come: the run has begun and its frequency is known.
    const auto FramesAt = [&](int RateHz) {
        const double Frames = PlayRun::FramesToPlay(Whole, Options.Run);
        return std::llround(Frames * RateHz / Playing->PlayedHz());
    };
    Options.Setup.Engine = EngineFor(Whole, Options.Setup.Engine);
    Options.Setup.VirtualClock = true;
    Options.Setup.Device = "wav:" + Options.OutPath;
    Options.Setup.Through = [&](std::unique_ptr<Sink> Output) {
        return std::make_unique<TrimmedSink>(std::move(Output), FramesAt);
    };

    Session Rendering(Options.Setup);
    Playing = &Rendering;
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
