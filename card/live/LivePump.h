#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "card/frames/FrameSource.h"
#include "card/frames/StreamFormat.h"
#include "card/live/InheritingMutex.h"
#include "card/live/ListenerTime.h"
#include "card/live/LiveFrames.h"
#include "card/live/LiveOptions.h"
#include "card/live/OutputDevice.h"
#include "platform/Clock.h"

namespace Tolvar {

/// What a live output is to play.
struct LiveRun {
    FrameSource* Source = nullptr;  ///< the caller's, until it is cut
    StreamFormat Format;
    int DeviceHz = 0;        ///< to ask of the device; other rates are resampled
    std::int64_t Frame = 0;  ///< the first to be heard
};

/// The two sides of a live output: what the apartment asks, under a lock that is never kept during
/// a call of the device, and Turn, the round of the render thread that keeps the device full.
class LivePump {
  public:
    LivePump(std::unique_ptr<OutputDevice> Device, const Clock& Time, LiveOptions Options);

    // The apartment's side; see LiveOutput.
    std::int64_t NowNs();
    std::int64_t Begin(const LiveRun& Wanted);
    /// False: this source does not play, and nothing is to be waited for.
    bool AskCut(const FrameSource& Source);
    /// The listener's time at the cut that was asked for, waiting up to WaitMs for it. A render
    /// thread that has not come back from the device by then finds the run gone when it does.
    std::int64_t FinishCut(int WaitMs);
    std::unique_lock<InheritingMutex> Hold() { return std::unique_lock(Lock_); }
    void Wake();
    std::vector<std::string> TakeNotices();
    /// Closes the device for good and waits up to WaitMs for it. False: the render thread does not
    /// come back from it, and touches nothing but the device when it does.
    bool End(int WaitMs);

    // The render thread's side.
    /// Thrown by Turn when nobody waits for the thread any more: it is to end, and touch nothing.
    struct LeftBehind {};

    /// One round: nanoseconds until the next is due, Forever for none; nothing: it was the last.
    std::optional<std::int64_t> Turn();
    /// Waits as Turn said, or until something is asked for.
    void WaitNs(std::int64_t Ns);

  private:
    enum class Phase { Idle, Sounding, Silent };
    enum class Happening { NotOpened, Lost, StoodStill, Back, RanDry };
    struct Notice {
        Happening What;
        int Value;  // error number, or count
    };

    // Of both sides; the lock is held.
    /// The run that this round is about is to be heard.
    bool IsServed() const { return RunNumber_ == ServedRun_ && Mode_ == Phase::Sounding; }
    void FindStuck();
    void FallSilent(Happening Why, int Error);
    void EndRun();
    void Note(Happening What, int Value);
    std::string TextOf(const Notice& Of) const;

    // The render thread's; the lock is free.
    std::optional<std::int64_t> Round();
    std::int64_t Play();
    std::int64_t Retry();
    std::int64_t Linger();
    bool Start();
    int OpenDevice(const LiveRun& For);
    bool Adopt();
    bool IsWaitedFor() const;
    std::int64_t NextLookNs() const;
    bool Measure();
    bool Look();
    bool Feed();
    std::size_t ReadSource(std::int64_t Frame, std::span<std::int16_t> Into);
    void RunDry();
    void SawHeard(std::int64_t Told, std::int64_t SlackFrames = 0);
    bool Lose(Happening Why, int Error);
    void Quieten();
    void LeaveRun();
    void DropAll(std::int64_t TakenBack);
    std::int64_t TakeBack(std::int64_t Ramp);
    void FadeOut(std::int64_t Ramp, std::int64_t TakenBack);
    bool FadeOn(std::int64_t Ramp);
    void Close();
    static constexpr int LateMs = 10;  // by which a look at the device may be late
    /// Between two looks at the device: often enough for the rest of what it holds to bridge one
    /// that is late, seldom enough to cost little.
    int TurnMs() const { return std::clamp(Options_.LatencyMs / 2, 2, 200); }
    std::int64_t FramesIn(std::int64_t Ms) const { return Ms * Opened_.RateHz / 1000; }
    std::int64_t MostHeard(std::int64_t ClockNs) const;
    template <typename Call>
    auto Calling(Call Do);

    std::unique_ptr<OutputDevice> Device_;
    const Clock& Time_;
    const LiveOptions Options_;

    // Guarded by Lock. The frames that a device was given and played are counted by the render
    // thread alone, which reads them without it.
    InheritingMutex Lock_;
    InheritingCondition ToThread_;     // something is asked of the render thread
    InheritingCondition ToApartment_;  // it has been done
    bool Woken_ = false;
    Phase Mode_ = Phase::Idle;
    LiveRun Run_;
    std::uint64_t RunNumber_ = 0;
    ListenerTime Listener_;
    std::int64_t CallClockNs_ = -1;  // the clock's when the device was called; -1: it is not
    bool Missing_ = false;           // it has been said that the device is not there
    bool CutWanted_ = false;
    std::int64_t CutNs_ = 0;
    bool Ending_ = false;
    bool Abandoned_ = false;  // nobody waits any more, and the clock may be gone
    bool HasEnded_ = false;
    std::array<Notice, 8> Notices_{};
    std::size_t NoticeCount_ = 0;
    int NoticesLost_ = 0;

    // The render thread's own.
    LiveFrames Frames_;
    StreamFormat Opened_;               // as it is open; no channels while it is not
    StreamFormat Asked_;                // when it was opened
    std::uint64_t PlaysRun_ = 0;        // 0: none
    std::uint64_t ServedRun_ = 0;       // the one that this round is about
    int Underruns_ = 0;                 // of the run
    bool WasFull_ = false;              // the device has taken less of the run than it was offered
    int DryLooks_ = 0;                  // at the device, one after the other, that found it dry
    std::int64_t StartClockNs_ = -1;    // the clock's at the first write; -1: none yet
    std::int64_t ProgressClockNs_ = 0;  // the clock's when more was heard last
    std::int64_t QuietClockNs_ = 0;
    std::int64_t RetryDueNs_ = 0;
};

}  // namespace Tolvar
