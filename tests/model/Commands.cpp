#include "tests/model/Commands.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

#include "store/BlockRec.h"
#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using Kind = Command::Kind;

enum class Takes { Nothing, Number, Factor };

/// In the order of Kind.
struct KindRow {
    const char* Name;  // the console's
    Takes Argument;
    int Often;
};
constexpr std::array<KindRow, 15> Rows{{{"WriteWaveMemo", Takes::Number, 4},
                                        {"PlayAgain", Takes::Nothing, 8},
                                        {"PlayAgainRev", Takes::Nothing, 8},
                                        {"PlayUTurn", Takes::Nothing, 12},
                                        {"PlayAtPos", Takes::Number, 10},
                                        {"PlayAtPosRev", Takes::Number, 10},
                                        {"StopPlay", Takes::Nothing, 4},
                                        {"PlayPause", Takes::Nothing, 10},
                                        {"PlayContinue", Takes::Nothing, 12},
                                        {"LoopPlayON", Takes::Number, 6},
                                        {"PlayTempoFor", Takes::Factor, 5},
                                        {"PlayTempoRev", Takes::Factor, 5},
                                        {"UpdatePlayPosition", Takes::Nothing, 8},
                                        {"PlayCurrentPosition", Takes::Nothing, 24},
                                        {"wait", Takes::Number, 90}}};

const KindRow& RowOf(Kind What) {
    return Rows[static_cast<std::size_t>(What)];
}

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

/// What a player and its model are told alike; Side is one of them with its clock.
void Apply(auto& Side, auto& Player, const Command& Given) {
    switch (Given.What) {
        case Kind::HandOver:
            Side.HandOver(Given.Value);
            Player.PlayTempoFor(Given.Factor);
            return Player.PlayTempoRev(Given.Factor);
        case Kind::PlayAgain:
            return Player.PlayAgain();
        case Kind::PlayAgainRev:
            return Player.PlayAgainRev();
        case Kind::PlayUTurn:
            return Player.PlayUTurn();
        case Kind::PlayAtPos:
            return Player.PlayAtPos(Given.Value);
        case Kind::PlayAtPosRev:
            return Player.PlayAtPosRev(Given.Value);
        case Kind::StopPlay:
            return Player.StopPlay();
        case Kind::PlayPause:
            return Player.PlayPause();
        case Kind::PlayContinue:
            return Player.PlayContinue();
        case Kind::LoopPlayON:
            return Player.LoopPlayON(Given.Value != 0);
        case Kind::PlayTempoFor:
            return Player.PlayTempoFor(Given.Factor);
        case Kind::PlayTempoRev:
            return Player.PlayTempoRev(Given.Factor);
        case Kind::UpdatePlayPosition:
            return Player.UpdatePlayPosition();
        case Kind::PlayCurrentPosition:
            return Side.Say("= " + std::to_string(Player.PlayCurrentPosition()));
        case Kind::Wait:
            return Side.Wait(Given.Value);
    }
}

struct ModelSide {
    const Trial& Of;
    ModelPlayer Player{Of.Engine};

    void HandOver(std::int32_t Wave) {
        Player.HandOver(Of.Waves[static_cast<std::size_t>(Wave)].Heard);
    }
    void Say(const std::string& What) { Player.Say(What); }
    void Wait(std::int32_t Ms) { Player.Wait(Ms); }
};

struct RealSide {
    const Trial& Of;
    std::vector<std::string> Said;    // until the player, who reports to the end, is gone
    ExactEars* Ears = new ExactEars;  // the card's
    Studio Room{Of.Engine, std::unique_ptr<ListeningSink>(Ears), {SinkRate::Rule::Native}};

    explicit RealSide(const Trial& TheTrial) : Of(TheTrial) {
        Room.Disk.Content = WaveFiles();
        Room.OnReport = [this](const std::string& Text) { Say("event \"S2\" \"" + Text + "\""); };
        Room.TakeEngine();
    }
    void HandOver(std::int32_t Number) {
        const MadeWave& Wave = Of.Waves[static_cast<std::size_t>(Number)];
        const auto Length = static_cast<std::int32_t>(Wave.Heard.Frames.size());
        Room.Player->WriteWaveMemo(Wave.Bits, Wave.Heard.Channels, Wave.Heard.Rate, Length,
                                   ListOf(Wave.Left), ListOf(Wave.Right));
    }
    void Say(const std::string& What) {
        Said.push_back("@" + std::to_string(Room.NowMs()) + " " + What);
    }
    void Wait(std::int32_t Ms) { Room.Advance(Ms); }
};

/// Both, with an ear on each.
class Pair {
  public:
    explicit Pair(const Trial& Of) : Real(Of), Model{Of} {}

    /// How they differ behind it; nothing when they do not.
    std::string Try(const Command& Given) {
        try {
            Apply(Real, *Real.Room.Player, Given);
        } catch (const std::exception& Thrown) {
            return std::string("thrown: ") + Thrown.what();
        }
        Apply(Model, Model.Player, Given);
        const std::string Differs = DifferentWords();
        return Differs.empty() ? DifferentSound() : Differs;
    }

    std::string Stop() {
        const std::string Differs = Try({Kind::StopPlay});
        const auto Missing = Model.Player.Heard.size();
        return !Differs.empty() || Missing == 0 ? Differs
                                                : std::to_string(Missing) + " samples not heard";
    }

    const ModelPlayer& TheModel() const { return Model.Player; }

  private:
    std::string DifferentWords();
    std::string DifferentSound();

    RealSide Real;
    ModelSide Model;
    std::size_t HeardBefore = 0;
};

std::string Pair::DifferentWords() {
    auto& Is = Real.Said;
    auto& Should = Model.Player.Said;
    Real.Say("in state " + std::to_string(Real.Room.Player->PlayRunningDx7State()));
    Model.Say("in state " + std::to_string(Model.Player.State));
    const auto [Other, Right] = std::ranges::mismatch(Is, Should);
    if (Other != Is.end()) return *Other + " is to be " + *Right;  // neither ends before
    Is.clear();
    Should.clear();
    return {};
}

/// The card hands frames over late, but never one that has not been heard.
std::string Pair::DifferentSound() {
    auto& Is = Real.Ears->Stream;
    auto& Should = Model.Player.Heard;
    if (Is.size() > Should.size()) return "more samples than time for them";
    const auto [Other, Right] = std::ranges::mismatch(Is, Should);
    if (Other != Is.end()) {
        return "sample " + std::to_string(HeardBefore + std::size_t(Other - Is.begin())) + ": " +
               std::to_string(*Other) + " is to be " + std::to_string(*Right);
    }
    HeardBefore += Is.size();
    Should.erase(Should.begin(), Right);
    Is.clear();
    return {};
}

// Random commands.

std::int32_t RandomWait(Dice& Random, const ModelPlayer& Now) {
    constexpr std::int64_t MostFrames = 60'000;
    constexpr std::int64_t MostMs = 20'000;
    std::int64_t Frame = Now.FramesPlayed() + Random.Between(0, Now.SegFrames());
    if (Random.OneIn(3)) {  // around the next border, or the one after it
        Frame = (Now.FramesPlayed() / Now.SegFrames() + Random.Between(1, 2)) * Now.SegFrames();
    } else if (Random.OneIn(3)) {
        Frame = Now.FramesOfRun();
    } else if (Random.OneIn(2)) {
        return Random.Between(0, 200);
    } else if (Random.OneIn(8)) {
        Frame = Now.FramesPlayed() + Random.Between(0, 5 * Now.SegFrames());
    }
    const std::int64_t Ms = (Frame - Now.FramesPlayed()) * 1000 / Now.Hz() + Random.Between(-3, 4);
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(Ms, 0, std::min(MostMs, MostFrames * 1000 / Now.Hz())));
}

std::int32_t RandomFrame(Dice& Random, const ModelPlayer& Now) {
    if (Random.OneIn(10)) return Random.Of(std::array{INT32_MIN, -1, 0, INT32_MAX});
    if (Random.OneIn(3)) return Now.SegFrames() * Random.Between(0, 3) + Random.Between(-1, 2);
    if (Random.OneIn(4)) return Now.Length() + Random.Between(-20, 1);
    return Random.Between(1, Now.Length());
}

float RandomTempo(Dice& Random) {
    if (Random.OneIn(2)) return Random.Of(std::array{1.0F, 0.5F, 1.5F, 2.0F, 0.7937F, 3.0F});
    if (Random.OneIn(10)) return Random.Of(std::array{-1.0F, 0.0F, 40.0F, 80.0F, 1e9F});
    return static_cast<float>(Random.Between(50, 6000)) / 1000;
}

Command RandomCommand(Dice& Random, const Trial& Of, const ModelPlayer& Now) {
    static const std::vector<Kind> All = [] {
        std::vector<Kind> Made;
        for (std::size_t I = 0; I < Rows.size(); ++I)
            Made.insert(Made.end(), static_cast<std::size_t>(Rows[I].Often), Kind(I));
        return Made;
    }();
    Command Made{Random.Of(All)};
    if (Made.What == Kind::HandOver) Made.Value = Random.Between(0, std::ssize(Of.Waves) - 1);
    if (Made.What == Kind::Wait) Made.Value = RandomWait(Random, Now);
    if (Made.What == Kind::LoopPlayON) Made.Value = Random.Between(0, 1);
    if (Made.What == Kind::PlayAtPos || Made.What == Kind::PlayAtPosRev) {
        Made.Value = RandomFrame(Random, Now);
    }
    Made.Factor = RandomTempo(Random);
    return Made;
}

// Scripts.

std::string BlockLine(const char* Channel, const ListEntry& Block) {
    const std::string Where = std::to_string(Block.Len) + " " + std::to_string(Block.Start);
    const std::string Line = std::string("block ") + Channel;
    if (Block.Type == BlkSilent) return Line + " silent " + Where + "\n";
    const std::string From = " " + std::to_string(Block.FilePos);
    const std::string Name = " " + std::string(Block.Name) + "\n";
    if (Block.Type == BlkFile) return Line + " work " + Where + From + Name;
    return Line + " org " + Where + From + " " + std::to_string(Block.Channels) + " " +
           std::to_string(Block.Bits) + Name;
}

std::string Decimal(float Factor) {
    std::array<char, 32> Text{};
    std::snprintf(Text.data(), Text.size(), " %.9g\n", static_cast<double>(Factor));
    return Text.data();
}

std::string HandOverLines(const MadeWave& Wave, float Factor) {
    std::string Text;
    for (const ListEntry& Each : Wave.Left)
        Text += BlockLine("L", Each);
    for (const ListEntry& Each : Wave.Right)
        Text += BlockLine("R", Each);
    Text += "WriteWaveMemo " + std::to_string(Wave.Bits) + " " +
            std::to_string(Wave.Heard.Channels) + " " + std::to_string(Wave.Heard.Rate) + " " +
            std::to_string(Wave.Heard.Frames.size()) + "\n";
    return Text + "PlayTempoFor" + Decimal(Factor) + "PlayTempoRev" + Decimal(Factor);
}

std::string ScriptLine(const Command& Given) {
    const auto& [Name, Argument, Often] = RowOf(Given.What);
    if (Argument == Takes::Factor) return Name + Decimal(Given.Factor);
    return Name + (Argument == Takes::Number ? " " + std::to_string(Given.Value) : "") + "\n";
}

}  // namespace

const char* NameOf(EngineOrder Engine) {
    return Engine == EngineOrder::WaveOut ? "waveout" : Engine == EngineOrder::Dx7 ? "dx7" : "dx9";
}

Trial RandomTrial(EngineOrder Engine, std::uint32_t Seed, int Count, std::string& Difference) {
    Dice Random(Seed);
    Trial Made{Engine, {}, {{Kind::HandOver}}};
    for (int I = 0; I < 4; ++I)
        Made.Waves.push_back(MakeWave(Random));
    Pair Both(Made);
    Difference = Both.Try(Made.Commands.back());
    for (int I = 1; I < Count && Difference.empty(); ++I) {
        Made.Commands.push_back(RandomCommand(Random, Made, Both.TheModel()));
        Difference = Both.Try(Made.Commands.back());
    }
    if (Difference.empty()) Difference = Both.Stop();
    return Made;
}

std::string Trial::Difference() const {
    Pair Both(*this);
    for (const Command& Each : Commands) {
        if (const std::string Differs = Both.Try(Each); !Differs.empty()) return Differs;
    }
    return Both.Stop();
}

Trial Trial::Shrunk() const {
    Trial Least = *this;
    for (auto Piece = std::ssize(Commands) / 2; Piece > 0;) {
        bool Shorter = false;
        for (auto From = std::ssize(Least.Commands) - Piece; From > 0; From -= Piece) {
            Trial Less = Least;
            const auto First = Less.Commands.begin() + From;
            Less.Commands.erase(First, First + Piece);
            if (Less.Difference().empty()) continue;
            Least = std::move(Less);
            Shorter = true;
        }
        if (!Shorter || Piece > 1) Piece /= 2;
    }
    return Least;
}

std::string Trial::Script() const {
    std::string Text = std::string("# waveplay script --engine ") + NameOf(Engine) +
                       " script | diff expected -\n# What is heard: --rate native --device "
                       "wav:heard.wav\nDxObj 1\n";
    for (const Command& Each : Commands) {
        Text += Each.What == Kind::HandOver
                    ? HandOverLines(Waves[static_cast<std::size_t>(Each.Value)], Each.Factor)
                    : ScriptLine(Each);
    }
    return Text + "StopPlay\n";
}

std::string Trial::Expected() const {
    ModelSide Model{*this};
    Model.Say(Engine == EngineOrder::WaveOut ? "= 2" : "= 1");
    for (const Command& Each : Commands)
        Apply(Model, Model.Player, Each);
    Model.Player.StopPlay();
    Model.Say("event \"S2\" \"Driver is Off\"");  // the editor lets go
    std::string Text;
    for (const std::string& Each : Model.Player.Said)
        Text += Each + "\n";
    return Text;
}

void Trial::Write(const std::string& Folder) const {
    const auto Put = [&](const std::string& Name, const auto& Content) {
        std::ofstream(Folder + "/" + Name, std::ios::binary)
            .write(reinterpret_cast<const char*>(Content.data()), std::ssize(Content));
    };
    for (const auto& [Name, Content] : WaveFiles())
        Put(Name, Content);
    Put("script", Script());
    Put("expected", Expected());
}

std::string Explained(const Trial& Differing) {
    const Trial Least = Differing.Shrunk();
    std::string Folder = (std::filesystem::temp_directory_path() / "tolvar-model-XXXXXX").string();
    if (mkdtemp(Folder.data()) == nullptr) throw std::runtime_error("cannot make " + Folder);
    Least.Write(Folder);
    const std::string Script = Least.Script();
    return std::to_string(Least.Commands.size()) + " commands: " + Least.Difference() + "\n" +
           Script + "# written to " + Folder + "\n";
}

}  // namespace Tolvar::Testing
