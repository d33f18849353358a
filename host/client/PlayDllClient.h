#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tolvar {

/// A call that did not succeed: the server's own text, or what became of the connection.
class __attribute__((visibility("default"))) PlayDllError : public std::runtime_error {
  public:
    PlayDllError(const std::string& Name, const std::string& Text)
        : std::runtime_error(Text), Name_(Name) {}

    /// The D-Bus name of the server's error; "" when the failure is the connection's or this
    /// library's.
    const std::string& Name() const noexcept { return Name_; }

  private:
    std::string Name_;
};

/// How a server process is started.
struct ServerStart {
    /// Its program; "": the one that the environment variable TOLVAR_SERVER names, else
    /// TolvarWaveEditorDll beside this program, beside this library, or where it was installed.
    std::string Program = {};
    /// Such as {"--device", "null", "--engine", "waveout"}.
    std::vector<std::string> Arguments = {};
    /// How long it may leave a call without an answer and without a report. One that takes longer
    /// is given up and killed: see PlayDllClient.
    int LimitMs = 30000;
};

/// The editor's proxy of a playback server in a process of its own: the members of the player
/// object by their names. Positions and lengths are frames, 1-based.
///
/// One thread. A member returns when the server has carried it out. Reports come to the event sink
/// on the calling thread: those that a call raises before it returns, the others from Dispatch.
/// The sink may call any member; it must return within 2 seconds (its own calls not counted), or
/// the server tells it nothing more until it has. What the sink throws goes to the server's log.
/// Do not destroy the proxy from inside the sink or a callback.
///
/// PlayDllError: the server refused a call, or is gone. It counts as gone, too, when it leaves a
/// call without an answer and without a report for too long (30 seconds, or as the start says).
/// Once it is gone every member fails at once with a text that says so; only a new proxy can be
/// used then.
class __attribute__((visibility("default"))) PlayDllClient {
  public:
    using EventSink = std::function<void(const std::string& Msg, const std::string& Ttl)>;

    /// Starts a server of this proxy's own. PlayDllError when it cannot be started.
    static PlayDllClient Start(const ServerStart& How = {});
    /// The server on the session bus, which the bus starts if need be. PlayDllError when there is
    /// none or another editor uses it.
    static PlayDllClient OnSessionBus(int LimitMs = 30000);
    /// Release, if that has not been called, but the sink and the callback are told nothing any
    /// more, and it takes 5 seconds at most. A server of its own is gone when this returns.
    ~PlayDllClient();
    PlayDllClient(PlayDllClient&&) noexcept;
    PlayDllClient& operator=(PlayDllClient&&) noexcept;

    void OnMsgBoxOb(EventSink Sink);
    /// Called once, with the reason, when the server is found to be gone without Release: from the
    /// call that finds it, before it throws, or from Dispatch.
    void OnServerGone(std::function<void(const std::string& Why)> Handler);

    /// Readable when Dispatch has something to do; -1 once the server is gone. The proxy's own.
    int Descriptor() const;
    /// Takes in the reports that have come since the last call; does not wait.
    void Dispatch();
    bool Gone() const;
    /// The process of a server of its own; -1 for one on the bus.
    int ProcessId() const;

    // The members. Properties that can be read take no argument, those that can be set take one.
    void DxObj(std::int32_t& MFrmHwnd);
    std::int32_t PlayCurrentPosition();
    void PlayAgain();
    void PlayAgainRev();
    std::int32_t PlayRunningDx7State();
    void PlayUTurn();
    void StopPlay();
    void PlayContinue();
    void UpdatePlayPosition();
    void PlayPause();
    /// Lists of more than 16 Mi values, or together more than a message takes, are refused here.
    void WriteWaveMemo(std::int32_t FmtBits, std::int32_t FmtChannal, std::int32_t FmtFriq,
                       std::int32_t WaveNos, std::span<const std::int32_t> BlkInLstL,
                       std::span<const std::int32_t> BlkInLstR);
    void MemorySizeToUse(std::int32_t Bytes);
    void LoopPlayON(bool On);
    void PlayTempoFor(float Factor);
    void PlayTempoRev(float Factor);
    /// UTF-8; the wire takes no other text.
    void AppTmpDir(const std::string& Folder);
    void ReleaseFiles();
    void PlayAtPos(std::int32_t Pos);
    void PlayAtPosRev(std::int32_t Pos);

    /// Lets go: the last reports come, the server stops, drops the wave and ends. Afterwards the
    /// server is gone. Returns the exit code of a server of its own (128 + the signal's number
    /// when a signal ended it; 0 when this program ignores SIGCHLD), 0 for one on the bus. A second
    /// call does nothing and returns the same. PlayDllError from inside the sink.
    int Release();

  private:
    struct Impl;
    explicit PlayDllClient(std::unique_ptr<Impl> Made);
    std::unique_ptr<Impl> Inner_;
};

}  // namespace Tolvar
