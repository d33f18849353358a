#include "tests/support/Studio.h"

namespace Tolvar::Testing {
namespace {

/// Hears every format as it is played.
struct OpenEars : ListeningSink {
    bool TakesEveryFormat() const override { return true; }
    void Open(int ChannelCount, int Rate) override {
        Channels = ChannelCount;
        RateHz = Rate;
    }
};

/// What an editor is told of one thing that failed, all of it, in one command or one stretch of
/// time. Or the command itself fails. "Driver is Off" follows the -1.
constexpr const char* Notice =
    "(Play Failed;|UTurn failed;|Driver is Off;)U-Turn Failed;"
    "|(Play Failed;|Play at.. failed;|Driver is Off;)Play at.. failed;"
    "|(Play Failed;){1,2}|(Driver is Off;){1,2}|(Play Buffer - Failed;)?Sound Buffer Failed;"
    "|Stop Play error.Stop Play error;|Play (Pause|Continue) error;|-1;|thrown;";

/// One editor's session, the same every time, during which something fails.
class Session {
  public:
    enum class At { Files, Device, DeviceRefusing };

    Session(EngineOrder Engine, At Where, const FaultPlan& Plan)
        : S_(Engine, std::make_unique<OpenEars>(), {SinkRate::Rule::Native}),
          Faults_(Where == At::Files ? S_.Disk : S_.DeviceFaults) {
        S_.State.AppTmpDir = "tmp";
        S_.State.MemorySizeToUse = 0;  // as few blocks in memory as can be
        S_.PutWave(Long);
        S_.Service.Refuses = Where == At::DeviceRefusing;
        Faults_ = Plan;
    }

    void Run() {
        Insist([&] {
            if (S_.TakeEngine() == -1) S_.Reports.emplace_back("-1");
        });
        HandOver(Long);
        Edit();
        Start([&] { S_.Player->PlayAgain(); }, Long);
        Wait(4500);
        Step([&] { S_.Player->PlayUTurn(); }, 1000);
        Step([&] { S_.Player->PlayPause(); }, 500);
        Step([&] { S_.Player->PlayContinue(); }, 200);
        Step([&] { S_.Player->PlayAtPos(3000); }, 30'000);
        EXPECT_EQ(S_.State.PlayRunningState, 0) << "a play that does not end";
        S_.Player->LoopPlayON(true);
        Step([&] { S_.Player->PlayAgainRev(); }, 9500);
        Step([&] { S_.Player->UpdatePlayPosition(); });
        Step([&] { static_cast<void>(S_.Player->PlayCurrentPosition()); });
        Step([&] { S_.Player->StopPlay(); });
        S_.Player->LoopPlayON(false);
        Quiet();
        const TestWave Other{.Frames = 6000, .Rate = 500, .BlockFrames = 4000};
        HandOver(Other);
        Start([&] { S_.Player->PlayAtPosRev(5000); }, Other);
        Wait(3000);
        Step([&] { S_.Player->ReleaseFiles(); });
        Quiet();
        NothingHeld();
    }

    /// False when the session had fewer calls than were to be made before the fault.
    bool Reached() const { return Faults_.Calls >= Faults_.FailAtCall; }

    int Told = 0;
    bool Noticed() const { return Told > 0 || !S_.Journal.Lines.empty(); }

    /// What must be when all works again.
    void Recover() {
        Faults_.FailAtCall = 0;
        if (S_.Player->EngineCode() == 0) S_.TakeEngine();
        S_.HandOver(Long);
        EXPECT_EQ(S_.Said().back(), "Done");
        S_.Ears->Heard.clear();
        S_.PlayAll();
        std::vector<int> Heard = S_.Heard();
        Heard.resize(9000);  // what a buffer held before may follow
        EXPECT_EQ(Heard, Frames(1, 9000));
        EXPECT_EQ(S_.Said(), (Strings{"Playing", "Play Done"}));
        Edit();
        EXPECT_GT(S_.Disk.Content.size(), 1U) << "no block had to leave memory";
        S_.Player->ReleaseFiles();
        NothingHeld();
        S_.Player.reset();
        S_.Store.reset();
        EXPECT_EQ(S_.Disk.OpenNow, 0);
        EXPECT_EQ(S_.Disk.Content.size(), 1U) << "a work file is left";
    }

  private:
    static constexpr TestWave Long{.Frames = 9000, .Channels = 2, .BlockFrames = 2300};

    /// True when the editor was told of a failure.
    bool Step(const std::function<void()>& Do, std::int64_t WaitMs = 0) {
        S_.Said();
        std::string Heard;
        try {
            Do();
        } catch (const RuntimeFailure&) {
            Heard = "thrown;";
        }
        for (const std::string& Each : S_.Said())
            if (Value(Each, ContainsRegex("ailed|error|Off|-1"))) Heard += Each + ";";
        EXPECT_THAT(S_.State.PlayRunningState, AllOf(Ge(0), Le(3)));
        if (!Heard.empty()) {
            ++Told;
            EXPECT_THAT(Heard, MatchesRegex(Notice));
            EXPECT_TRUE(Reached()) << "told before anything failed";
        }
        if (WaitMs != 0) Wait(WaitMs);
        return !Heard.empty();
    }
    void Wait(std::int64_t Ms) {
        Step([&] { S_.Advance(Ms); });
    }

    /// What the rest of the session cannot do without is done again.
    void Insist(const std::function<void()>& Do) {
        if (!Step(Do) || Faults_.ForGood) return;
        EXPECT_FALSE(Step(Do)) << "not done at the second time either";
    }
    void HandOver(const TestWave& W) {
        Insist([&] { S_.HandOver(W); });
    }
    /// The first start behind a hand-over. The service does not say that it could not make a
    /// buffer: that comes out here, and the next hand-over makes one.
    void Start(const std::function<void()>& Do, const TestWave& W) {
        if (!Step(Do) || Faults_.ForGood || !S_.Service.Refuses) return;
        HandOver(W);
        EXPECT_FALSE(Step(Do));
    }

    /// Changes samples into what they are, which brings blocks into memory, more than may stay.
    void Edit() {
        for (const auto& Carrier : {S_.State.BlkCarrL, S_.State.BlkCarrR}) {
            for (const std::int32_t Pos : {10, 3000, 7000}) {
                Step([&] { Carrier->WaveLR(Pos, Carrier->WaveLR(Pos)); });
            }
        }
        const FaultPlan Before = std::exchange(Faults_, {});
        for (const int Sign : {1, -1}) {
            std::vector<std::int16_t> Samples(9000);
            (Sign == 1 ? S_.State.BlkCarrL : S_.State.BlkCarrR)->QuickBuffGet(1, Samples);
            for (int F = 1; F <= 9000; ++F)
                ASSERT_EQ(Samples[static_cast<std::size_t>(F) - 1], Sign * F);
        }
        Faults_ = Before;
    }

    /// A stop that was told, told or not to the device, is the end of what is told.
    void Quiet() {
        EXPECT_EQ(S_.State.PlayRunningState, 0);
        S_.Said();
        S_.Advance(20'000);
        EXPECT_EQ(S_.Said(), Strings{}) << "behind a stop";
        EXPECT_EQ(S_.Disk.OpenNow, 0) << "behind a stop";
    }

    void NothingHeld() {
        EXPECT_EQ(S_.Disk.OpenNow, 0);
        EXPECT_EQ(S_.Store->BuffMemUsed(), 0);
        for (std::int32_t Blk = 1; Blk <= S_.Store->BlockCnt(); ++Blk)
            EXPECT_EQ(S_.Store->Block(Blk).BlkType, BlkFree) << "block " << Blk;
        for (std::int32_t Slot = 1; Slot <= S_.Store->OrgFileCnt(); ++Slot)
            EXPECT_EQ(S_.Store->OrgFile(Slot).OrgUseCnt, 0) << "original file " << Slot;
        for (std::int32_t Slot = 1; Slot <= S_.Store->WorkFileCnt(); ++Slot)
            EXPECT_EQ(S_.Store->WorkFile(Slot).WorkUseCnt, 0) << "work file " << Slot;
    }

    Studio S_;
    FaultPlan& Faults_;
};

/// A session for each call, with that one refused; with the sanitizers for each third.
void FailEachCall(EngineOrder Engine, Session::At Where, bool ForGood) {
    int Healed = 0;
    int Call = 1;
    for (bool Reached = true; Reached && !Test::HasFailure(); Call += FAULT_STEP) {
        SCOPED_TRACE(Call);
        Session Tried(Engine, Where, {.FailAtCall = Call, .ForGood = ForGood});
        Tried.Run();
        Reached = Tried.Reached();
        EXPECT_TRUE(ForGood || Tried.Told <= 1) << Tried.Told;
        EXPECT_TRUE(Reached || !Tried.Noticed());
        Healed += Reached && !Tried.Noticed() ? 1 : 0;
        Tried.Recover();
    }
    EXPECT_GT(Call, 50) << "a session that hardly calls";
    // The right channel's last sample is read once more, with the rest, before anything is said.
    EXPECT_LE(Healed, Where == Session::At::Files ? 6 : 0) << "something failed in silence";
}

TEST_P(EachEngine, TellsOnceOfWhatFailsAndLosesNothing) {
    for (const bool ForGood : {false, true}) {
        FailEachCall(GetParam(), Session::At::Files, ForGood);
        FailEachCall(GetParam(), Session::At::Device, ForGood);
        if (GetParam() != EngineOrder::Dx9) continue;
        FailEachCall(GetParam(), Session::At::DeviceRefusing, ForGood);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
