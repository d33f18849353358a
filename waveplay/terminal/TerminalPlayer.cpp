#include "waveplay/terminal/TerminalPlayer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "platform/RuntimeFailure.h"
#include "waveplay/terminal/KeyCommands.h"
#include "waveplay/terminal/Painter.h"

namespace Tolvar {
namespace {

constexpr std::int64_t LeastFrameNs = 40 * NsPerMs;
constexpr std::int64_t MostFrameNs = 100 * NsPerMs;  // tenths of a second are shown
constexpr std::int64_t EscapeNs = 50 * NsPerMs;      // within it a sequence's bytes follow
constexpr std::int64_t RefineEveryNs = 6 * NsPerMs;
constexpr std::int64_t RefineForNs = 2 * NsPerMs;
constexpr int ProbesAtOnce = 16;

const char* Variable(const char* Name) {
    return std::getenv(Name);
}

}  // namespace

bool TerminalPlayer::Usable() {
    return isatty(STDOUT_FILENO) == 1 && LookFrom(Variable).CanMove &&
           static_cast<bool>(OpenDescriptor("/dev/tty", O_RDWR));
}

TerminalPlayer::TerminalPlayer(PlayerPort& Player, Apartment& Home, TerminalFacts Facts,
                               TerminalLook Look)
    : Home_(Home),
      Port_(Player),
      Facts_(std::move(Facts)),
      Look_(Look),
      Player_(Player, Facts_.Wave),
      Overview_(Facts_.Wave.WaveNos, Facts_.FmtChannal, Facts_.Read),
      Terminal_("/dev/tty"),
      Signals_(Home, [this](int Signal) { OnSignal(Signal); }),
      LastFrameNs_(Home.Time().NowNs() - LeastFrameNs) {
    Player_.Listen([this](PlayerControl::Change) { ScheduleFrameSoon(); });
    Port_.OnMsgBoxOb(
        [this](std::string_view Msg, std::string_view Ttl) { Player_.Report(Msg, Ttl); });
}

TerminalPlayer::~TerminalPlayer() {
    Hide();
    try {
        Port_.OnMsgBoxOb({});
    } catch (const RuntimeFailure&) {
        // A player that is gone reports nothing more.
    }
}

TerminalEnd TerminalPlayer::Run() {
    struct HideAtEnd {
        TerminalPlayer& Self;
        ~HideAtEnd() { Self.Hide(); }
    } const Hiding{*this};
    Show();
    Home_.RunUntil(Forever, [this] { return HasEnded(); });
    if (!LostBecause_.empty()) throw RuntimeFailure(FailureKind::Device, LostBecause_);
    return End_.value_or(TerminalEnd::Interrupted);
}

void TerminalPlayer::Show() {
    End_.reset();
    Terminal_.Enter();
    Showing_ = true;
    Home_.Watch({Terminal_.Fd()}, [this] { OnBytes(); });
    ScheduleFrameSoon();
    RefineOverview();
}

void TerminalPlayer::Hide() noexcept {
    if (!std::exchange(Showing_, false)) return;
    Home_.Unwatch({Terminal_.Fd()});
    Home_.Disarm(Frame_);
    Home_.Disarm(LoneEscape_);
    Home_.Disarm(Refining_);
    Terminal_.Leave();
    OnScreen_ = {};
}

bool TerminalPlayer::HasEnded() {
    if (!End_ && Player_.State() == Transport::Ended) End_ = TerminalEnd::PlayedOut;
    if (!End_ && (Terminal_.HungUp() || Facts_.Interrupted())) End_ = TerminalEnd::Interrupted;
    return End_ || !LostBecause_.empty();
}

// Keys.

void TerminalPlayer::OnBytes() {
    Home_.Disarm(LoneEscape_);
    for (const Key& Each : Decoder_.Feed(Terminal_.Read()))
        OnKey(Each);
    if (!Decoder_.Waiting()) return;
    LoneEscape_ = Home_.Arm(Home_.Time().NowNs() + EscapeNs, [this] {
        for (const Key& Each : Decoder_.Flush())
            OnKey(Each);
    });
}

void TerminalPlayer::OnKey(const Key& Pressed) {
    if (!Player_.Note().Text.empty()) Player_.Say("");
    const bool WasShown = std::exchange(HelpShown_, false);
    if (WasShown) ScheduleFrameSoon();
    const bool Closes = WasShown && Pressed != Key{Key::Name::Character, U'q'};
    switch (Closes ? KeyOutcome::Done : Press(Pressed, Player_)) {
        case KeyOutcome::Done:
            break;
        case KeyOutcome::Quit:
            End_ = TerminalEnd::Quit;
            break;
        case KeyOutcome::Help:
            HelpShown_ = true;
            ScheduleFrameSoon();
            break;
        case KeyOutcome::Redraw:
            OnScreen_ = {};
            ScheduleFrameSoon();
            break;
    }
}

// Signals.

void TerminalPlayer::OnSignal(int Signal) {
    if (Signal == SIGHUP || Signal == SIGQUIT) End_ = TerminalEnd::Interrupted;
    if (!Showing_) return;
    if (Signal == SIGTSTP) Suspend();
    if (Signal == SIGCONT) {
        Terminal_.Enter();
        OnScreen_ = {};
    }
    ScheduleFrameSoon();
}

// The sound waits with the program: a program that is stopped cannot fill the device.
void TerminalPlayer::Suspend() {
    const bool Sounding = Player_.State() == Transport::Playing;
    if (Sounding) Player_.Pause();
    Terminal_.Leave();
    TerminalSignals::StopHere();
    Terminal_.Enter();
    OnScreen_ = {};
    if (Sounding) Player_.Play();
}

// The picture.

void TerminalPlayer::ScheduleFrameSoon() {
    ScheduleFrame(std::max(Home_.Time().NowNs(), LastFrameNs_ + LeastFrameNs));
}

void TerminalPlayer::ScheduleFrame(std::int64_t AtNs) {
    if (!Showing_ || (Frame_.Order != 0 && Frame_.DueNs <= AtNs)) return;
    Home_.Disarm(Frame_);
    Frame_ = Home_.Arm(AtNs, [this] {
        Frame_ = {};
        DrawFrame();
    });
}

void TerminalPlayer::DrawFrame() {
    LastFrameNs_ = Home_.Time().NowNs();
    try {
        Player_.Refresh();
    } catch (const RuntimeFailure& Cause) {
        LostBecause_ = Cause.what();
        return;
    }
    if (!Terminal_.Flush()) {
        ScheduleFrameSoon();  // a slow terminal skips pictures, it holds nothing up
        return;
    }
    const Grid Next = Screen(CurrentView());
    Terminal_.Write(Painted(OnScreen_, Next, Look_.Colours));
    OnScreen_ = Next;
    if (Player_.State() == Transport::Playing) ScheduleFrame(LastFrameNs_ + FrameInterval());
}

// The next moment at which the cursor or the tenths can have moved.
std::int64_t TerminalPlayer::FrameInterval() const {
    const double Hz = Player_.Wave().FmtFriq * Player_.Rate();
    const double ColumnNs = static_cast<double>(NsPerSecond) * Player_.Wave().WaveNos / Hz /
                            std::max(1, OnScreen_.Width());
    const double Most = static_cast<double>(MostFrameNs);
    return std::max(LeastFrameNs, static_cast<std::int64_t>(std::min(ColumnNs, Most)));
}

View TerminalPlayer::CurrentView() const {
    const TerminalSize Size = Terminal_.Size();
    View Now;
    Now.Width = Size.Columns;
    Now.Height = Size.Rows;
    Now.Unicode = Look_.Unicode;
    Now.Name = Facts_.Name;
    Now.Engine = Facts_.Engine;
    Now.Device = Facts_.Device;
    Now.Format = Facts_.Format;
    Now.Wave = Player_.Wave();
    Now.State = Player_.State();
    Now.Here = Player_.Here();
    Now.LastReport = Player_.LastReport();
    Now.Note = Player_.Note();
    Now.Help = HelpShown_;
    Now.Overview = &Overview_;
    return Now;
}

void TerminalPlayer::RefineOverview() {
    const std::int64_t UntilNs = Home_.Time().NowNs() + RefineForNs;
    bool More = true;
    while (More && Home_.Time().NowNs() < UntilNs)
        More = Overview_.Work(ProbesAtOnce);
    if (!Overview_.Failure().empty()) Player_.Say("no overview: " + Overview_.Failure(), true);
    ScheduleFrameSoon();
    if (More) {
        Refining_ = Home_.Arm(Home_.Time().NowNs() + RefineEveryNs, [this] { RefineOverview(); });
    }
}

}  // namespace Tolvar
