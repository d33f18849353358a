#include "waveplay/script/ScriptParser.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "store/BlockRec.h"

namespace Tolvar {
namespace {

using Maker = ScriptAction (*)(ScriptArguments&);

constexpr std::int64_t DayMs = 86'400'000;

template <auto Member>
ScriptAction Call(ScriptArguments&) {
    return [](ScriptRunner& Runner) { (Runner.Player().*Member)(); };
}

template <auto Member>
ScriptAction Get(ScriptArguments&) {
    return [](ScriptRunner& Runner) { Runner.Result((Runner.Player().*Member)()); };
}

// A member that takes the one value that Take reads from the line.
template <auto Member, auto Take>
ScriptAction Give(ScriptArguments& Given) {
    return [Value = (Given.*Take)("the value")](ScriptRunner& Runner) {
        (Runner.Player().*Member)(Value);
    };
}

ScriptAction DxObj(ScriptArguments& Given) {
    return [MFrmHwnd = Given.Int32("HWND")](ScriptRunner& Runner) {
        std::int32_t Written = MFrmHwnd;
        Runner.Player().DxObj(Written);
        Runner.Result(Written);
    };
}

ScriptAction WriteWaveMemo(ScriptArguments& Given) {
    const std::int32_t Bits = Given.Int32("BITS");
    const std::int32_t Channels = Given.Int32("CHANNELS");
    const std::int32_t Friq = Given.Int32("FRIQ");
    const std::int32_t Frames = Given.Int32("NOS");
    return [=](ScriptRunner& Runner) { Runner.HandOverPending(Bits, Channels, Friq, Frames); };
}

// Which parts of an entry a line gives depends on its kind; a raw type code gives them all.
BlockEntry TakeEntry(ScriptArguments& Given) {
    const std::string& Kind = Given.Text("the block's kind");
    const bool Silent = Kind == "silent";
    const bool Work = Kind == "work";
    BlockEntry Entry;
    if (Silent || Work || Kind == "org") {
        Entry.Code = Silent ? BlkSilent : Work ? BlkFile : BlkOrgFile;
    } else {
        ScriptArguments Raw({Kind});
        Entry.Code = Raw.Int32("the block's kind (org, work, silent or a type code)");
    }
    Entry.Len = Given.Int32("LEN");
    const std::string& Start = Given.Text("START");
    if (Start != "+") Entry.StartPos = ScriptArguments({Start}).Int32("START");
    if (Silent) return Entry;
    Entry.FilePos = Given.Int32("POS");
    if (!Work) {
        Entry.Channels = Given.Int32("CHANNELS");
        Entry.Bits = Given.Int32("BITS");
    }
    Entry.Name = Given.Text("PATH");
    return Entry;
}

ScriptAction Block(ScriptArguments& Given) {
    const bool Right = Given.IsRight("the channel");
    return [Right, Entry = TakeEntry(Given)](ScriptRunner& Runner) {
        Runner.Pending(Right).Append(Entry);
    };
}

ScriptAction List(ScriptArguments& Given) {
    const bool Right = Given.IsRight("the channel");
    std::vector<std::int32_t> Values;
    while (Given.More())
        Values.push_back(Given.Int32("the value"));
    return [Right, Values](ScriptRunner& Runner) { Runner.Pending(Right).Assign(Values); };
}

ScriptAction Load(ScriptArguments& Given) {
    return [Path = Given.Text("PATH")](ScriptRunner& Runner) { Runner.Load(Path); };
}

ScriptAction Wait(ScriptArguments& Given) {
    return [Ms = Given.Milliseconds("MS")](ScriptRunner& Runner) { Runner.Wait(Ms); };
}

ScriptAction WaitStop(ScriptArguments& Given) {
    const std::int64_t MostMs = Given.More() ? Given.Milliseconds("MAXMS") : DayMs;
    return [MostMs](ScriptRunner& Runner) { Runner.WaitStop(MostMs); };
}

template <auto Member>
ScriptAction Own(ScriptArguments&) {
    return [](ScriptRunner& Runner) { (Runner.*Member)(); };
}

const std::map<std::string_view, Maker>& Makers() {
    using Player = PlayerPort;
    using Given = ScriptArguments;
    static const std::map<std::string_view, Maker> Table{
        {"DxObj", DxObj},
        {"PlayCurrentPosition", Get<&Player::PlayCurrentPosition>},
        {"PlayAgain", Call<&Player::PlayAgain>},
        {"PlayAgainRev", Call<&Player::PlayAgainRev>},
        {"PlayRunningDx7State", Get<&Player::PlayRunningDx7State>},
        {"PlayUTurn", Call<&Player::PlayUTurn>},
        {"StopPlay", Call<&Player::StopPlay>},
        {"PlayContinue", Call<&Player::PlayContinue>},
        {"UpdatePlayPosition", Call<&Player::UpdatePlayPosition>},
        {"PlayPause", Call<&Player::PlayPause>},
        {"WriteWaveMemo", WriteWaveMemo},
        {"MemorySizeToUse", Give<&Player::MemorySizeToUse, &Given::Int32>},
        {"LoopPlayON", Give<&Player::LoopPlayON, &Given::Truth>},
        {"PlayTempoFor", Give<&Player::PlayTempoFor, &Given::Decimal>},
        {"PlayTempoRev", Give<&Player::PlayTempoRev, &Given::Decimal>},
        {"AppTmpDir", Give<&Player::AppTmpDir, &Given::Text>},
        {"ReleaseFiles", Call<&Player::ReleaseFiles>},
        {"PlayAtPos", Give<&Player::PlayAtPos, &Given::Int32>},
        {"PlayAtPosRev", Give<&Player::PlayAtPosRev, &Given::Int32>},
        {"block", Block},
        {"list", List},
        {"load", Load},
        {"wait", Wait},
        {"wait-stop", WaitStop},
        {"dump", Own<&ScriptRunner::Dump>},
        {"release", Own<&ScriptRunner::Release>},
    };
    return Table;
}

ScriptAction ParseCommand(std::vector<std::string> Words) {
    const auto Found = Makers().find(Words.front());
    if (Found == Makers().end()) {
        throw ScriptMistake("unknown command \"" + Words.front() + "\"");
    }
    const std::string Command = std::move(Words.front());
    Words.erase(Words.begin());
    ScriptArguments Given(std::move(Words));
    try {
        ScriptAction Action = Found->second(Given);
        Given.End();
        return Action;
    } catch (const ScriptMistake& Mistake) {
        throw ScriptMistake(Command + ": " + Mistake.what());
    }
}

}  // namespace

std::vector<ScriptAction> ParseScript(std::string_view Text) {
    std::vector<ScriptAction> Actions;
    for (int Number = 1; !Text.empty(); ++Number) {
        const std::string_view Line = Text.substr(0, Text.find('\n'));
        Text.remove_prefix(std::min(Text.size(), Line.size() + 1));
        try {
            std::vector<std::string> Words = SplitWords(Line);
            if (!Words.empty()) Actions.push_back(ParseCommand(std::move(Words)));
        } catch (const ScriptMistake& Mistake) {
            throw ScriptMistake(std::to_string(Number) + ": " + Mistake.what());
        }
    }
    return Actions;
}

}  // namespace Tolvar
