#include "waveplay/script/ScriptRunner.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

#include "host/PlayServer.h"
#include "platform/posix/Posix.h"
#include "waveplay/player/PlayRun.h"
#include "waveplay/script/Json.h"
#include "waveplay/script/StateDump.h"
#include "waveplay/wave/Pieces.h"

namespace Tolvar {

ScriptRunner::ScriptRunner(const SessionOptions& Setup)
    : Session_(
          MakePlayer(Setup, [this](std::string_view Text) { Print("box", JsonString(Text)); })) {
    Session_.Player().OnMsgBoxOb([this](std::string_view Msg, std::string_view Ttl) {
        Print("event", JsonString(Msg).append(" ").append(JsonString(Ttl)));
    });
}

ExitCode ScriptRunner::Run(const std::vector<ScriptAction>& Actions, bool Strict) {
    bool Failed = false;
    for (const ScriptAction& Action : Actions) {
        if (!Trapped(Action)) Failed = true;
        if (Session_.Interrupted() || Session_.Lost() || (Strict && Failed)) break;
    }
    if (Session_.HasPlayer()) Trapped([](ScriptRunner& Self) { Self.Release(); });
    if (Session_.Lost()) return ExitFailed;
    Session_.Finish();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw ErrnoFailure("cannot write standard output", errno);
    }
    if (Session_.Interrupted()) return ExitInterrupted;
    return Strict && Failed ? ExitFailed : ExitDone;
}

bool ScriptRunner::Trapped(const ScriptAction& Action) {
    try {
        Action(*this);
        return true;
    } catch (const std::exception& Cause) {
        Print("error", JsonString(Cause.what()));
        return false;
    }
}

// Each line is out before the next thing happens, so that another program can follow.
void ScriptRunner::Print(std::string_view Kind, std::string_view What) {
    std::string Line = "@";
    Line.append(std::to_string(Session_.NowNs() / NsPerMs)).append(" ").append(Kind);
    Line.append(" ").append(What).append("\n");
    std::fwrite(Line.data(), 1, Line.size(), stdout);
    std::fflush(stdout);
}

void ScriptRunner::Result(std::int32_t Value) {
    Print("=", std::to_string(Value));
}

void ScriptRunner::HandOverPending(std::int32_t Bits, std::int32_t Channels, std::int32_t Friq,
                                   std::int32_t Frames) {
    const BlockListBuilder L = std::exchange(ListL_, {});
    const BlockListBuilder R = std::exchange(ListR_, {});
    Player().WriteWaveMemo(Bits, Channels, Friq, Frames, L.Values(), R.Values());
}

void ScriptRunner::Load(const std::string& Path) {
    HandOver(Player(), WaveOf(OpenWav(Path)));
}

void ScriptRunner::Wait(std::int64_t Ms) {
    Session_.RunFor(Ms);
}

void ScriptRunner::WaitStop(std::int64_t MostMs) {
    const bool Stopped =
        Session_.RunFor(MostMs, [&] { return Player().PlayRunningDx7State() == 0; });
    if (Stopped || Session_.Interrupted()) return;
    throw RuntimeFailure(FailureKind::Device,
                         "still not stopped after " + std::to_string(MostMs) + " ms");
}

void ScriptRunner::Dump() {
    const PlayServer* const Inside = Session_.Inside();
    if (Inside == nullptr) {
        throw RuntimeFailure(FailureKind::Input,
                             "dump looks inside the player, which is in another process "
                             "(--in-process has it in this one)");
    }
    const std::int32_t EngineCode = Inside->HasPlayer() ? Inside->Player().EngineCode() : 0;
    Print("=", StateDump(Inside->State(), EngineCode, Inside->Store()));
}

}  // namespace Tolvar
