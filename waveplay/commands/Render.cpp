#include <cmath>
#include <memory>
#include <utility>

#include "waveplay/commands/Commands.h"
#include "waveplay/commands/TrimmedSink.h"
#include "waveplay/player/LocalPlayer.h"

namespace Tolvar {

ExitCode Render(RenderOptions Options) {
    const Wave Whole = JoinPieces(Options.Pieces);
    std::int32_t PlayedHz = 0;
    // Asked when the first frames come: the run has begun and its frequency is known.
    const auto FramesAt = [&](int RateHz) {
        const double Frames = PlayRun::FramesToPlay(Whole, Options.Run);
        return std::llround(Frames * RateHz / PlayedHz);
    };
    Options.Setup.Engine = EngineFor(Whole, Options.Setup.Engine);
    Options.Setup.VirtualClock = true;
    Options.Setup.Device = "wav:" + Options.OutPath;
    PlayServerOptions Setup = LocalSetup(Options.Setup);
    Setup.Through = [&](std::unique_ptr<Sink> Output) {
        return std::make_unique<TrimmedSink>(std::move(Output), FramesAt);
    };

    Session Rendering(std::make_unique<LocalPlayer>(Setup));
    {
        PlayRun Run(Rendering);
        Run.Start(Whole, Options.Run);
        PlayedHz = Run.PlayedHz();
        if (!Run.Finish()) return ExitInterrupted;
    }
    Rendering.Release();
    Rendering.Finish();
    return Rendering.Interrupted() ? ExitInterrupted : ExitDone;
}

}  // namespace Tolvar
