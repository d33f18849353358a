#include <cstdio>
#include <exception>
#include <new>

#include "platform/posix/ProcessGuard.h"
#include "waveplay/commands/CommandLine.h"

namespace {

using namespace Tolvar;

struct Runner {
    ExitCode operator()(ExitCode Answered) const { return Answered; }
    ExitCode operator()(const PlayOptions& Options) const { return Play(Options); }
    ExitCode operator()(const RenderOptions& Options) const { return Render(Options); }
    ExitCode operator()(const ScriptOptions& Options) const { return Script(Options); }
};

}  // namespace

int main(int Count, char** Arguments) {
    GuardProcess();
    try {
        return std::visit(Runner{}, ParseCommandLine(Count, Arguments));
    } catch (const std::bad_alloc&) {
        std::fputs("waveplay: not enough memory\n", stderr);
        return ExitFailed;
    } catch (const std::exception& Cause) {
        std::fprintf(stderr, "waveplay: %s\n", Cause.what());
        return ExitFailed;
    }
}
