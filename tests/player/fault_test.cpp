#include <set>

#include "tests/player/FaultyDevices.h"
#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using Strings = std::vector<std::string>;

/// Hears every format as it is played.
struct OpenEars : ListeningSink {
    bool TakesEveryFormat() const override { return true; }
    void Open(int ChannelCount, int Rate) override {
        Channels = ChannelCount;
        RateHz = Rate;
    }
};

/// A studio whose device can be refused, and whose store can end before its files do.
struct FaultyStudio {
    explicit FaultyStudio(EngineOrder Engine)
        : Room(Engine, std::make_unique<OpenEars>(), {SinkRate::Rule::Native}),
          Store(std::make_unique<WoroFileBlockMod>(Room.Disk, Room.Box, Room.State)) {
        Room.Player = std::make_unique<PlayDllClass>(Os, Room.State, *Store, Engine);
        Room.Listen();
        Room.State.AppTmpDir = "tmp";
        Room.State.MemorySizeToUse = 0;  // as few blocks in memory as can be
        Room.PutWave(Long);
    }
    ~FaultyStudio() { Room.Player.reset(); }
    FaultyStudio(const FaultyStudio&) = delete;
    FaultyStudio& operator=(const FaultyStudio&) = delete;

    static constexpr TestWave Long{.Frames = 9000, .Channels = 2, .BlockFrames = 2300};

    Studio Room;
    FaultPlan DeviceFaults;
    FaultyWaveOut Wave{Room.Device, DeviceFaults};
    FaultyLibrary Library{Room.Service, DeviceFaults, Room.Journal};
    System Os{Room.Home, Room.Disk, Room.Box, Room.Journal, Wave, Library, [this] {
                  FailAsDevice(DeviceFaults, "DirectX7");
                  return std::make_unique<FaultyDirectX7>(std::make_unique<DirectX7Root>(Room.Card),
                                                          DeviceFaults);
              }};
    std::unique_ptr<WoroFileBlockMod> Store;
};

/// What an editor is told of one thing that failed: one of these, all of it, in one command or one
/// stretch of time. Or the command itself fails.
const std::set<Strings> Notices{{"Play Failed"},
                                {"Play Failed", "Play Failed"},
                                {"UTurn failed", "U-Turn Failed"},
                                {"Play Failed", "U-Turn Failed"},
                                {"Play at.. failed", "Play at.. failed"},
                                {"Play Failed", "Play at.. failed"},
                                {"Play Buffer - Failed", "Sound Buffer Failed"},
                                {"Sound Buffer Failed"},
                                {"Stop Play error|Stop Play error"},
                                {"Play Pause error"},
                                {"Play Continue error"},
                                {"Driver is Off"},  // after -1
                                {"Driver is Off", "Driver is Off"},
                                {"Driver is Off", "U-Turn Failed"},
                                {"Driver is Off", "Play at.. failed"},
                                {"-1"},
                                {"thrown"}};

bool TellsOfFailure(const std::string& Report) {
    return std::ranges::any_of(Notices, [&](const Strings& Each) {
        return std::ranges::find(Each, Report) != Each.end();
    });
}

/// One editor's session, the same every time, during which something fails.
class Session {
  public:
    enum class At { Files, Device, DeviceRefusing };

    Session(EngineOrder TheEngine, At Where, int Call, bool ForGood)
        : S(TheEngine), Faults(Where == At::Files ? S.Room.Disk : S.DeviceFaults) {
        S.Library.Refuses = Where == At::DeviceRefusing;
        Faults.FailAtCall = Call;
        Faults.ForGood = ForGood;
    }

    void Run() {
        TakeEngine();
        HandOver();
        Edit();
        Start([&] { Player().PlayAgain(); });
        Wait(4500);
        Step([&] { Player().PlayUTurn(); });
        Wait(1000);
        Step([&] { Player().PlayPause(); });
        Wait(500);
        Step([&] { Player().PlayContinue(); });
        Wait(200);
        Step([&] { Player().PlayAtPos(3000); });
        Wait(30'000);
        EXPECT_EQ(S.Room.State.PlayRunningState, 0) << "a play that does not end";
        Player().LoopPlayON(true);
        Step([&] { Player().PlayAgainRev(); });
        Wait(9500);
        Step([&] { Player().UpdatePlayPosition(); });
        Step([&] { static_cast<void>(Player().PlayCurrentPosition()); });
        Step([&] { Player().StopPlay(); });
        Player().LoopPlayON(false);
        Quiet();
        Loaded = {.Frames = 6000, .Rate = 500, .BlockFrames = 4000};
        HandOver();
        Start([&] { Player().PlayAtPosRev(5000); });
        Wait(3000);
        Step([&] { Player().ReleaseFiles(); });
        Quiet();
        NothingHeld();
    }

    /// False when the session had fewer calls than were to be made before the fault.
    bool Reached() const { return Faults.Calls >= Faults.FailAtCall; }

    int Told() const { return NoticesHeard; }
    bool Logged() const { return !S.Room.Journal.Lines.empty(); }

    /// What must be when all works again.
    void Recover() {
        Faults.FailAtCall = 0;
        if (Player().EngineCode() == 0) S.Room.TakeEngine();
        S.Room.HandOver(FaultyStudio::Long);
        EXPECT_EQ(S.Room.Said().back(), "Done");
        S.Room.Ears->Heard.clear();
        S.Room.PlayAll();
        const std::vector<int> Heard = S.Room.Heard();
        EXPECT_EQ(std::vector(Heard.begin(),
                              Heard.begin() + std::min<std::ptrdiff_t>(std::ssize(Heard), 9000)),
                  Frames(1, 9000));
        EXPECT_EQ(S.Room.Said(), (Strings{"Playing", "Play Done"}));
        Edit();
        EXPECT_GT(S.Room.Disk.Content.size(), 1U) << "no block had to leave memory";
        Player().ReleaseFiles();
        NothingHeld();
        S.Room.Player.reset();
        S.Store.reset();
        EXPECT_EQ(S.Room.Disk.OpenNow, 0);
        EXPECT_EQ(S.Room.Disk.Content.size(), 1U) << "a work file is left";
    }

  private:
    PlayDllClass& Player() { return *S.Room.Player; }

    /// True when the editor was told of a failure.
    bool Step(const std::function<void()>& Do) {
        S.Room.Said();
        Strings Heard;
        try {
            Do();
        } catch (const RuntimeFailure&) {
            Heard.emplace_back("thrown");
        }
        std::ranges::copy_if(S.Room.Said(), std::back_inserter(Heard), TellsOfFailure);
        const std::int32_t State = S.Room.State.PlayRunningState;
        EXPECT_TRUE(State >= 0 && State <= 3) << State;
        if (Heard.empty()) return false;
        ++NoticesHeard;
        EXPECT_TRUE(Notices.contains(Heard)) << ::testing::PrintToString(Heard);
        EXPECT_TRUE(Reached()) << "told before anything failed";
        return true;
    }

    /// What the rest of the session cannot do without is done again.
    void Insist(const std::function<void()>& Do) {
        if (!Step(Do) || Faults.ForGood) return;
        EXPECT_FALSE(Step(Do)) << "not done at the second time either";
    }
    void TakeEngine() {
        const auto Take = [&] {
            if (S.Room.TakeEngine() == -1) S.Room.Reports.emplace_back("-1");
        };
        Insist(Take);
    }
    void HandOver() {
        Insist([&] { S.Room.HandOver(Loaded); });
    }
    /// The first start behind a hand-over. The service does not say that it could not make a
    /// buffer: that comes out here, and the next hand-over makes one.
    void Start(const std::function<void()>& Do) {
        if (!Step(Do) || Faults.ForGood || !S.Library.Refuses) return;
        HandOver();
        EXPECT_FALSE(Step(Do));
    }
    void Wait(std::int64_t Ms) {
        Step([&] { S.Room.Advance(Ms); });
    }

    /// Changes samples into what they are, which brings blocks into memory, more than may stay.
    void Edit() {
        for (const auto& Carrier : {S.Room.State.BlkCarrL, S.Room.State.BlkCarrR}) {
            for (const std::int32_t Pos : {10, 3000, 7000}) {
                Step([&] { Carrier->WaveLR(Pos, Carrier->WaveLR(Pos)); });
            }
        }
        WaveIsWhole();
    }
    void WaveIsWhole() {
        const int Call = std::exchange(Faults.FailAtCall, 0);
        const int Calls = Faults.Calls;
        for (const int Sign : {1, -1}) {
            const auto& Carrier = Sign == 1 ? S.Room.State.BlkCarrL : S.Room.State.BlkCarrR;
            std::vector<std::int16_t> Samples(9000);
            Carrier->QuickBuffGet(1, Samples);
            for (int F = 1; F <= 9000; ++F)
                ASSERT_EQ(Samples[static_cast<std::size_t>(F) - 1], Sign * F);
        }
        Faults.FailAtCall = Call;
        Faults.Calls = Calls;
    }

    /// A stop that was told, told or not to the device, is the end of what is told.
    void Quiet() {
        EXPECT_EQ(S.Room.State.PlayRunningState, 0);
        S.Room.Said();
        S.Room.Advance(20'000);
        EXPECT_EQ(S.Room.Said(), Strings{}) << "behind a stop";
        EXPECT_EQ(S.Room.Disk.OpenNow, 0) << "behind a stop";
    }

    void NothingHeld() {
        EXPECT_EQ(S.Room.Disk.OpenNow, 0);
        EXPECT_EQ(S.Store->BuffMemUsed(), 0);
        for (std::int32_t Blk = 1; Blk <= S.Store->BlockCnt(); ++Blk)
            EXPECT_EQ(S.Store->Block(Blk).BlkType, BlkFree) << "block " << Blk;
        for (std::int32_t Slot = 1; Slot <= S.Store->OrgFileCnt(); ++Slot)
            EXPECT_EQ(S.Store->OrgFile(Slot).OrgUseCnt, 0) << "original file " << Slot;
        for (std::int32_t Slot = 1; Slot <= S.Store->WorkFileCnt(); ++Slot)
            EXPECT_EQ(S.Store->WorkFile(Slot).WorkUseCnt, 0) << "work file " << Slot;
    }

    FaultyStudio S;
    FaultPlan& Faults;
    TestWave Loaded = FaultyStudio::Long;
    int NoticesHeard = 0;
};

class Faults : public ::testing::TestWithParam<std::tuple<EngineOrder, Session::At>> {};

std::string NameOf(const ::testing::TestParamInfo<Faults::ParamType>& Info) {
    const auto& [Engine, Where] = Info.param;
    return std::string(
               std::array{"Auto", "Dx9", "Dx7", "WaveOut"}[static_cast<std::size_t>(Engine)]) +
           std::array{"Files", "Device", "DeviceRefusing"}[static_cast<std::size_t>(Where)];
}

INSTANTIATE_TEST_SUITE_P(All, Faults,
                         ::testing::Values(std::tuple(EngineOrder::Dx9, Session::At::Files),
                                           std::tuple(EngineOrder::Dx7, Session::At::Files),
                                           std::tuple(EngineOrder::WaveOut, Session::At::Files),
                                           std::tuple(EngineOrder::Dx9, Session::At::Device),
                                           std::tuple(EngineOrder::Dx9,
                                                      Session::At::DeviceRefusing),
                                           std::tuple(EngineOrder::Dx7, Session::At::Device),
                                           std::tuple(EngineOrder::WaveOut, Session::At::Device)),
                         NameOf);

TEST_P(Faults, OneCallThatFailsIsToldOnceAndNothingIsLost) {
    const auto [Engine, Where] = GetParam();
    bool Reached = true;
    int Healed = 0;
    for (int Call = 1; Reached && !HasFailure(); ++Call) {
        SCOPED_TRACE(Call);
        Session Tried(Engine, Where, Call, false);
        Tried.Run();
        Reached = Tried.Reached();
        EXPECT_LE(Tried.Told(), 1);
        const bool Noticed = Tried.Told() > 0 || Tried.Logged();
        EXPECT_TRUE(Reached || !Noticed);
        Healed += Reached && !Noticed ? 1 : 0;
        Tried.Recover();
        RecordProperty("calls", Call - 1);
    }
    // The right channel's last sample is read once more, with the rest, before anything is said.
    EXPECT_LE(Healed, Where == Session::At::Files ? 6 : 0) << "something failed in silence";
}

TEST_P(Faults, WhatFailsForGoodLeavesAPlayerThatWorksWhenItIsMended) {
    const auto [Engine, Where] = GetParam();
    bool Reached = true;
    for (int Call = 1; Reached && !HasFailure(); ++Call) {
        SCOPED_TRACE(Call);
        Session Tried(Engine, Where, Call, true);
        Tried.Run();
        Reached = Tried.Reached();
        Tried.Recover();
    }
}

class LateTicks : public ::testing::TestWithParam<EngineOrder> {};

INSTANTIATE_TEST_SUITE_P(All, LateTicks,
                         ::testing::Values(EngineOrder::Dx9, EngineOrder::Dx7,
                                           EngineOrder::WaveOut));

TEST_P(LateTicks, NeitherEndAPlayNorKeepItAlive) {
    for (const std::int64_t LateMs : {300, 5000, 60'000}) {
        for (std::int64_t At = 0; At < 9500; At += 190) {
            SCOPED_TRACE(std::to_string(LateMs) + " ms late after " + std::to_string(At));
            Studio S(GetParam());
            S.Load({.Frames = 9000, .BlockFrames = 9000});
            S.Player->PlayAgain();
            S.Advance(At);
            S.Home.Sleep(LateMs);  // nothing is delivered meanwhile
            EXPECT_TRUE(S.PlayOut(40'000));
            S.Advance(10'000);
            EXPECT_EQ(S.Said(), (Strings{"Playing", "Play Done"}));
            const std::vector<int> Whole = Frames(1, 9000);
            EXPECT_TRUE(GetParam() != EngineOrder::WaveOut || S.Heard() == Whole);
        }
    }
}

}  // namespace
}  // namespace Tolvar::Testing
