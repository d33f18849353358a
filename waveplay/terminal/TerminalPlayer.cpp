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

TerminalPlayer::TerminalPlayer(PlayerPort& ThePlayer, Apartment& HomeOf, TerminalFacts FactsOf,
                               TerminalLook LookOf)
    : Home(HomeOf),
      Port(ThePlayer),
      Facts(std::move(FactsOf)),
      Look(LookOf),
      Player(ThePlayer, Facts.Wave),
      Overview(Facts.Wave.WaveNos, Facts.FmtChannal, Facts.Read),
      Line(Facts.TtyPath),
      Signals(HomeOf, [this](int Signal) { OnSignal(Signal); }),
      LastFrameNs(HomeOf.Time().NowNs() - LeastFrameNs) {
    Player.Listen([this](PlayerControl::Change) { WantFrameSoon(); });
    Port.OnMsgBoxOb(
        [this](std::string_view Msg, std::string_view Ttl) { Player.Report(Msg, Ttl); });
}

TerminalPlayer::~TerminalPlayer() {
    Close();
    try {
        Port.OnMsgBoxOb({});
    } catch (const RuntimeFailure&) {
        // A player that is gone reports nothing more.
    }
}

TerminalEnd TerminalPlayer::Run() {
    struct Guard {
        TerminalPlayer& Of;
        ~Guard() { Of.Close(); }
    } const Leaving{*this};
    Open();
    Home.RunUntil(Forever, [this] { return Over(); });
    Close();
    if (!Lost.empty()) throw RuntimeFailure(FailureKind::Device, Lost);
    return End.value_or(TerminalEnd::Interrupted);
}

void TerminalPlayer::Open() {
    End.reset();
    Line.Enter();
    Showing = true;
    Home.Watch({Line.Fd()}, [this] { OnKeys(); });
    WantFrameSoon();
    RefineOverview();
}

void TerminalPlayer::Close() noexcept {
    if (!std::exchange(Showing, false)) return;
    Home.Unwatch({Line.Fd()});
    Home.Disarm(Frame);
    Home.Disarm(LoneEscape);
    Home.Disarm(Refining);
    Line.Leave();
    OnScreen = {};
}

bool TerminalPlayer::Over() {
    if (Player.State() == Transport::Ended && !Facts.StayAtEnd && !End) {
        End = TerminalEnd::PlayedOut;
    }
    if (!End && (Line.HungUp() || Facts.Interrupted())) End = TerminalEnd::Interrupted;
    return End || !Lost.empty();
}

// Keys.

void TerminalPlayer::OnKeys() {
    Home.Disarm(LoneEscape);
    for (const Key& Each : Decoder.Feed(Line.Read()))
        Take(Each);
    if (!Decoder.Waiting()) return;
    LoneEscape = Home.Arm(Home.Time().NowNs() + EscapeNs, [this] {
        for (const Key& Each : Decoder.Flush())
            Take(Each);
    });
}

void TerminalPlayer::Take(const Key& Pressed) {
    if (!Player.Note().Text.empty()) Player.Say("");
    const bool WasShown = std::exchange(HelpShown, false);
    if (WasShown) WantFrameSoon();
    const bool Closes = WasShown && Pressed != Key{Key::Name::Character, U'q'};
    switch (Closes ? KeyOutcome::Done : Press(Pressed, Player)) {
        case KeyOutcome::Done:
            break;
        case KeyOutcome::Quit:
            End = TerminalEnd::Quit;
            break;
        case KeyOutcome::Help:
            HelpShown = true;
            WantFrameSoon();
            break;
        case KeyOutcome::Redraw:
            OnScreen = {};
            WantFrameSoon();
            break;
    }
}

// Signals.

void TerminalPlayer::OnSignal(int Signal) {
    if (Signal == SIGHUP || Signal == SIGQUIT) End = TerminalEnd::Interrupted;
    if (!Showing) return;
    if (Signal == SIGTSTP) Suspend();
    if (Signal == SIGCONT) {
        Line.Enter();
        OnScreen = {};
    }
    WantFrameSoon();
}

// The sound waits with the program: a program that is stopped cannot fill the device.
void TerminalPlayer::Suspend() {
    const bool Sounding = Player.State() == Transport::Playing;
    if (Sounding) Player.Pause();
    Line.Leave();
    TerminalSignals::StopHere();
    Line.Enter();
    OnScreen = {};
    if (Sounding) Player.Play();
}

// The picture.

void TerminalPlayer::WantFrameSoon() {
    WantFrame(std::max(Home.Time().NowNs(), LastFrameNs + LeastFrameNs));
}

void TerminalPlayer::WantFrame(std::int64_t AtNs) {
    if (!Showing || (Frame.Order != 0 && Frame.DueNs <= AtNs)) return;
    Home.Disarm(Frame);
    Frame = Home.Arm(AtNs, [this] {
        Frame = {};
        DrawFrame();
    });
}

void TerminalPlayer::DrawFrame() {
    LastFrameNs = Home.Time().NowNs();
    try {
        Player.Refresh();
    } catch (const RuntimeFailure& Gone) {
        Lost = Gone.what();
        return;
    }
    if (!Line.Flush()) {
        WantFrameSoon();  // a slow terminal skips pictures, it holds nothing up
        return;
    }
    const Grid Next = Screen(Shown());
    Line.Write(Painted(OnScreen, Next, Look.Colours));
    OnScreen = Next;
    if (Player.State() == Transport::Playing) WantFrame(LastFrameNs + FrameInterval());
}

// The next moment at which the cursor or the tenths can have moved.
std::int64_t TerminalPlayer::FrameInterval() const {
    const double Hz = Player.Wave().FmtFriq * Player.Rate();
    const double ColumnNs = static_cast<double>(NsPerSecond) * Player.Wave().WaveNos / Hz /
                            std::max(1, OnScreen.Width());
    const double Most = static_cast<double>(MostFrameNs);
    return std::max(LeastFrameNs, static_cast<std::int64_t>(std::min(ColumnNs, Most)));
}

View TerminalPlayer::Shown() const {
    const TerminalSize Size = Line.Size();
    View Now;
    Now.Width = Size.Columns;
    Now.Height = Size.Rows;
    Now.Unicode = Look.Unicode;
    Now.Name = Facts.Name;
    Now.Engine = Facts.Engine;
    Now.Device = Facts.Device;
    Now.Format = Facts.Format;
    Now.Wave = Player.Wave();
    Now.State = Player.State();
    Now.Here = Player.Here();
    Now.LastReport = Player.LastReport();
    Now.Note = Player.Note();
    Now.Help = HelpShown;
    Now.Overview = &Overview;
    return Now;
}

void TerminalPlayer::RefineOverview() {
    const std::int64_t UntilNs = Home.Time().NowNs() + RefineForNs;
    bool More = true;
    while (More && Home.Time().NowNs() < UntilNs)
        More = Overview.Work(ProbesAtOnce);
    if (!Overview.Failure().empty()) Player.Say("no overview: " + Overview.Failure(), true);
    WantFrameSoon();
    if (More) {
        Refining = Home.Arm(Home.Time().NowNs() + RefineEveryNs, [this] { RefineOverview(); });
    }
}

}  // namespace Tolvar
