#include "tests/model/Commands.h"

#include <filesystem>
#include <sstream>
#include <utility>

#include "tests/model/ModelPlayer.h"
#include "tests/support/Studio.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

/// Takes every frame as it was played, whatever the tempo.
struct ExactEars : ListeningSink {
    std::vector<std::int32_t> Stream;

    bool TakesEveryFormat() const override { return true; }
    void Open(int ChannelCount, int Rate) override {
        Stream.push_back(ModelPlayer::FormatMark(ChannelCount, Rate));
    }
    void Write(std::span<const std::int16_t> Samples) override {
        Stream.insert(Stream.end(), Samples.begin(), Samples.end());
    }
};

struct RealPlayer {
    std::vector<std::string> Said;    // until the player, who reports to the end, is gone
    ExactEars* Ears = new ExactEars;  // the card's
    Studio Room;

    explicit RealPlayer(EngineOrder Engine)
        : Room(Engine, std::unique_ptr<ListeningSink>(Ears), {SinkRate::Rule::Native}) {
        Room.Disk.Content = WaveFiles();
        Room.OnReport = [this](const std::string& Text) { Say("event \"S2\" \"" + Text + "\""); };
        Room.TakeEngine();
    }
    void HandOver(const std::shared_ptr<const MadeWave>& Wave) {
        Room.Player->WriteWaveMemo(Wave->Bits, Wave->Channels, Wave->Rate,
                                   static_cast<std::int32_t>(Wave->Frames.size()),
                                   ListOf(Wave->Blocks[0]), ListOf(Wave->Blocks[1]));
    }
    void Say(const std::string& What) {
        Said.push_back("@" + std::to_string(Room.NowMs()) + " " + What);
    }
    void Wait(std::int32_t Ms) { Room.Advance(Ms); }
};

/// What the player and its model are told alike; Side has the time as well.
void Tell(const Command& Given, auto& Side, auto& Player) {
    const auto& [What, Value, Wave] = Given;
    const auto Factor = static_cast<float>(Value.value_or(0));
    const auto Number = static_cast<std::int32_t>(Value.value_or(0));
    if (What == "WriteWaveMemo") {
        Side.HandOver(Wave);
        Player.PlayTempoFor(Factor);
        Player.PlayTempoRev(Factor);
    }
    if (What == "PlayAgain") Player.PlayAgain();
    if (What == "PlayAgainRev") Player.PlayAgainRev();
    if (What == "PlayUTurn") Player.PlayUTurn();
    if (What == "PlayAtPos") Player.PlayAtPos(Number);
    if (What == "PlayAtPosRev") Player.PlayAtPosRev(Number);
    if (What == "StopPlay") Player.StopPlay();
    if (What == "PlayPause") Player.PlayPause();
    if (What == "PlayContinue") Player.PlayContinue();
    if (What == "LoopPlayON") Player.LoopPlayON(Number != 0);
    if (What == "PlayTempoFor") Player.PlayTempoFor(Factor);
    if (What == "PlayTempoRev") Player.PlayTempoRev(Factor);
    if (What == "UpdatePlayPosition") Player.UpdatePlayPosition();
    if (What == "PlayCurrentPosition") {
        Side.Say("= " + std::to_string(Player.PlayCurrentPosition()));
    }
    if (What == "wait") Side.Wait(Number);
}

/// How the one differs from the other; what was compared is taken away. What Should come may be
/// late, but it ends with Is.
template <typename Each>
std::string Compared(std::vector<Each>& Is, std::vector<Each>& Should) {
    const auto [Other, Right] = std::ranges::mismatch(Is, Should);
    if (Other != Is.end()) {
        return ::testing::PrintToString(*Other) + " is to be " +
               (Right == Should.end() ? "nothing" : ::testing::PrintToString(*Right));
    }
    Should.erase(Should.begin(), Right);
    Is.clear();
    return {};
}

// Random commands.

double RandomWait(Dice& Random, const ModelPlayer& Now) {
    if (Random.OneIn(5)) return Random.Between(0, 200);
    const std::int64_t Seg = Now.SegFrames();
    const std::int64_t ToBorder = Seg - Now.Played % Seg;
    const std::int64_t ToEnd = Now.FramesOfRun() - Now.Played;
    const std::int64_t Frames =
        Random.OneIn(8) ? Random.Between(0, 5 * Seg)
                        : Random.Of(std::array{ToBorder, ToBorder + Seg, ToEnd, Seg / 2, Seg / 5});
    const std::int64_t Ms =
        std::clamp(Frames, std::int64_t{0}, std::int64_t{60'000}) * 1000 / Now.Hz();
    return static_cast<double>(std::clamp<std::int64_t>(Ms + Random.Between(-3, 4), 0, 20'000));
}

double RandomFrame(Dice& Random, const ModelPlayer& Now) {
    if (Random.OneIn(10)) return Random.Of(std::array{INT32_MIN, -1, 0, INT32_MAX});
    if (Random.OneIn(3)) return Now.SegFrames() * Random.Between(0, 3) + Random.Between(-1, 2);
    if (Random.OneIn(4)) return Now.Length() + Random.Between(-20, 1);
    return Random.Between(1, Now.Length());
}

double RandomTempo(Dice& Random, const ModelPlayer&) {
    if (Random.OneIn(2)) return Random.Of(std::array{1.0F, 0.5F, 1.5F, 2.0F, 0.7937F, 3.0F});
    if (Random.OneIn(10)) return Random.Of(std::array{-1.0F, 0.0F, 40.0F, 80.0F, 1e9F});
    return static_cast<float>(Random.Between(50, 6000)) / 1000;
}

struct Kind {
    std::string_view What;
    int Often;
    double (*Value)(Dice&, const ModelPlayer&) = nullptr;
};
const std::array<Kind, 15> Kinds{
    {{"WriteWaveMemo", 4, RandomTempo},
     {"PlayAgain", 8},
     {"PlayAgainRev", 8},
     {"PlayUTurn", 12},
     {"PlayAtPos", 10, RandomFrame},
     {"PlayAtPosRev", 10, RandomFrame},
     {"StopPlay", 4},
     {"PlayPause", 10},
     {"PlayContinue", 12},
     {"LoopPlayON", 6, [](Dice& D, auto&) -> double { return D.Between(0, 1); }},
     {"PlayTempoFor", 5, RandomTempo},
     {"PlayTempoRev", 5, RandomTempo},
     {"UpdatePlayPosition", 8},
     {"PlayCurrentPosition", 24},
     {"wait", 90, RandomWait}}};

Command RandomCommand(Dice& Random, const ModelPlayer& Now) {
    const Kind* Made = &Random.Of(Kinds);
    while (Random.Between(1, 90) > Made->Often)
        Made = &Random.Of(Kinds);
    Command Given{Made->What};
    if (Made->Value != nullptr) Given.Value = Made->Value(Random, Now);
    if (Given.What == "WriteWaveMemo") Given.Wave = MakeWave(Random);
    return Given;
}

// Scripts.

std::string Script(const Trial& Of) {
    std::ostringstream Text;
    Text.precision(10);
    Text << "# waveplay script --engine " << NameOf(Of.Engine) << " script | diff expected -\n"
         << "# What is heard: --rate native --device wav:heard.wav\nDxObj 1\n";
    for (const auto& [What, Value, Wave] : Of.Commands) {
        if (!Wave) {
            Text << What;
            if (Value) Text << " " << *Value;
            Text << "\n";
            continue;
        }
        for (const bool Right : {false, true}) {
            for (const ListEntry& B : Wave->Blocks[Right])
                Text << "block " << (Right ? "R " : "L ") << B.Type << " " << B.Len << " "
                     << B.Start << " " << B.FilePos << " " << B.Channels << " " << B.Bits << " \""
                     << B.Name << "\"\n";
        }
        Text << What << " " << Wave->Bits << " " << Wave->Channels << " " << Wave->Rate << " "
             << Wave->Frames.size() << "\nPlayTempoFor " << *Value << "\nPlayTempoRev " << *Value
             << "\n";
    }
    return Text.str() + "StopPlay\n";
}

std::string Expected(const Trial& Of) {
    ModelPlayer Model{Of.Engine};
    Model.Say(Of.Engine == EngineOrder::WaveOut ? "= 2" : "= 1");
    for (const Command& Each : Of.Commands)
        Tell(Each, Model, Model);
    Model.StopPlay();
    Model.Say("event \"S2\" \"Driver is Off\"");  // the editor lets go
    std::string Text;
    for (const std::string& Each : Model.Said)
        Text += Each + "\n";
    return Text;
}

}  // namespace

Trial RandomTrial(EngineOrder Engine, std::uint32_t Seed, int Count) {
    Dice Random(Seed);
    Trial Made{Engine, {{"WriteWaveMemo", 1, MakeWave(Random)}}};
    ModelPlayer Model(Engine);
    while (std::ssize(Made.Commands) < Count) {
        Tell(Made.Commands.back(), Model, Model);
        Model.Heard.clear();
        Made.Commands.push_back(RandomCommand(Random, Model));
    }
    return Made;
}

std::string Trial::Difference() const {
    RealPlayer Real(Engine);
    ModelPlayer Model(Engine);
    std::vector<Command> All = Commands;
    All.push_back({"StopPlay"});
    for (const Command& Each : All) {
        try {
            Tell(Each, Real, *Real.Room.Player);
        } catch (const std::exception& Thrown) {
            return std::string("thrown: ") + Thrown.what();
        }
        Tell(Each, Model, Model);
        Real.Say("in state " + std::to_string(Real.Room.Player->PlayRunningDx7State()));
        Model.Say("in state " + std::to_string(Model.State));
        std::string Differs = Compared(Real.Said, Model.Said);
        // The card hands frames over late, but never one that has not been heard.
        if (Differs.empty()) Differs = Compared(Real.Ears->Stream, Model.Heard);
        if (!Differs.empty()) return Differs;
    }
    return Model.Heard.empty() ? "" : "samples that were not heard";
}

void Trial::Write(const std::string& Folder) const {
    for (const auto& [Name, Content] : WaveFiles())
        Put(Folder + "/" + Name, {Content.begin(), Content.end()});
    Put(Folder + "/script", Script(*this));
    Put(Folder + "/expected", Expected(*this));
}

std::string Explained(const Trial& Differing) {
    Trial Least = Differing;
    for (auto Piece = std::ssize(Least.Commands) / 2; Piece > 0; Piece /= 2) {
        for (auto From = std::ssize(Least.Commands) - Piece; From > 0; From -= Piece) {
            Trial Less = Least;
            const auto First = Less.Commands.begin() + From;
            Less.Commands.erase(First, First + Piece);
            if (!Less.Difference().empty()) Least = std::move(Less);
        }
    }
    std::string Folder = (std::filesystem::temp_directory_path() / "tolvar-model-XXXXXX").string();
    if (mkdtemp(Folder.data()) == nullptr) throw std::runtime_error("cannot make " + Folder);
    Least.Write(Folder);
    return std::to_string(Least.Commands.size()) + " commands: " + Least.Difference() + "\n" +
           Script(Least) + "# written to " + Folder + "\n";
}

}  // namespace Tolvar::Testing
