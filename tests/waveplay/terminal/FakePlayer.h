#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/RuntimeFailure.h"
#include "waveplay/player/PlayerPort.h"

namespace Tolvar::Testing {

/// A player without sound: its wave passes as the test says. Keeps the calls that change
/// something as one text; what the interface has no business with fails the test.
class FakePlayer : public PlayerPort {
  public:
    static constexpr std::int32_t WaveNos = 100'000;
    std::int32_t Running = 0;
    std::int32_t Direction = 1;
    std::int32_t Position = 0;  ///< as the player counts: the frame heard last
    bool Gone = false;
    bool EndsWhenAsked = false;  ///< the end comes, and its report, while the position is asked
    std::string Refusal;         ///< the next command is refused with it
    std::string Calls;

    /// Frames of play pass.
    void Advance(std::int32_t Frames) {
        if (Running != 1) return;
        Position += Frames * Direction;
        if (Direction > 0 ? Position < WaveNos : Position > 1) return;
        Position = Direction > 0 ? WaveNos : 1;
        Running = 0;
        Report("Play Done");
    }
    void Report(const std::string& Ttl) {
        if (Sink_) Sink_("S2", Ttl);
    }

    void OnMsgBoxOb(EventSink To) override { Sink_ = std::move(To); }
    std::int32_t PlayCurrentPosition() override {
        Alive();
        if (std::exchange(EndsWhenAsked, false)) Advance(WaveNos);
        return Position;
    }
    std::int32_t PlayRunningDx7State() override { return Alive(), Running; }
    void PlayAgain() override { Start("again", 1, 1); }
    void PlayAgainRev() override { Start("again-rev", -1, WaveNos); }
    void PlayAtPos(std::int32_t Pos) override { Start("at " + std::to_string(Pos), 1, Pos); }
    void PlayAtPosRev(std::int32_t At) override { Start("at-rev " + std::to_string(At), -1, At); }
    void PlayUTurn() override { Start("turn", -Direction, Position); }
    void PlayPause() override {
        Note("pause");
        Running = 3;
    }
    void PlayContinue() override {
        Note("continue");
        Running = 1;
    }
    void StopPlay() override {
        Note("stop");
        Running = 0;
        Report("Stopped");
    }
    void LoopPlayON(bool On) override { Note(On ? "loop" : "no-loop"); }
    void PlayTempoFor(float Factor) override { Note("tempo " + Short(Factor)); }
    void PlayTempoRev(float Factor) override { Note("tempo-rev " + Short(Factor)); }

    void DxObj(std::int32_t&) override { Unused(); }
    void UpdatePlayPosition() override { Unused(); }
    void WriteWaveMemo(std::int32_t, std::int32_t, std::int32_t, std::int32_t, BlockList,
                       BlockList) override {
        Unused();
    }
    void MemorySizeToUse(std::int32_t) override { Unused(); }
    void AppTmpDir(const std::string&) override { Unused(); }
    void ReleaseFiles() override { Unused(); }
    void Release() override { Unused(); }

  private:
    static void Unused() { throw std::logic_error("not the interface's business"); }
    static std::string Short(float Factor) { return std::to_string(Factor).substr(0, 5); }
    void Alive() const {
        if (Gone) throw RuntimeFailure(FailureKind::Device, "the server is gone");
    }
    void Note(const std::string& Call) {
        Alive();
        if (!Refusal.empty()) throw RuntimeFailure(FailureKind::Input, std::exchange(Refusal, {}));
        Calls += (Calls.empty() ? "" : ", ") + Call;
    }
    void Start(const std::string& Call, std::int32_t Towards, std::int32_t First) {
        Note(Call);
        Direction = Towards;
        Position = Towards > 0 ? First - 1 : First + 1;  // nothing heard yet
        if (Call == "turn") Position = First;
        Running = 1;
        Report("Playing");
    }

    EventSink Sink_;
};

}  // namespace Tolvar::Testing
