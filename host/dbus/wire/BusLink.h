#pragma once

#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host/dbus/wire/Message.h"
#include "platform/posix/Posix.h"

namespace Tolvar {

/// One end of a D-Bus connection. What the other end calls is collected, never run, while messages
/// are received, so that a call can be served inside another and the owner decides the order.
/// Both ends of the wire stand on it. One thread.
class BusLink {
  public:
    enum class Side { Server, Client };

    /// A peer-to-peer connection over a connected stream socket; the server's side speaks second.
    /// RuntimeFailure when it cannot be set up. Socket is owned from here on.
    BusLink(Descriptor Socket, Side As);
    /// The user's session bus. RuntimeFailure when there is none.
    static std::unique_ptr<BusLink> OnSessionBus();
    ~BusLink();
    BusLink(const BusLink&) = delete;
    BusLink& operator=(const BusLink&) = delete;

    sd_bus* Bus() const { return Connection_.get(); }
    bool Open() const { return IsOpen_; }
    /// Why it is not Open.
    const std::string& WhyClosed() const { return Closing_; }
    /// Gives up on the other end, which sees the connection closed.
    void Abandon() noexcept { Close(ETIMEDOUT); }

    /// Readable when Receive has something to do, and for good when the connection has ended.
    int WaitFd() const { return Wait_.Get(); }
    /// Nanoseconds until Receive has to be called whatever WaitFd says; none: never.
    std::optional<std::int64_t> DueInNs() const;

    /// Takes in what has come, until MostWaiting calls wait.
    void Receive();

    /// How many calls have ever come.
    std::uint64_t Arrived() const { return LastCall_; }
    /// The first waiting call that came after the first After ones; null: none. It is then the
    /// caller's to answer.
    Message TakeCall(std::uint64_t After = 0);
    std::size_t CallsWaiting() const { return Calls_.size(); }

    /// RuntimeFailure when the connection is gone. The result is the cookie of the answer.
    std::uint64_t Send(sd_bus_message* Call);
    /// Whether the answer that is awaited for Cookie has come.
    bool HasAnswer(std::uint64_t Cookie) const;
    enum class Wakening { Answer, Time, Closed };
    /// Waits for the answer, at most until *DeadlineNs of NowNs, and runs Meanwhile whenever
    /// something has come, which may move the deadline; what is called meanwhile is collected
    /// without the bound of Receive, and refused beyond it. Answer is set for Wakening::Answer.
    Wakening Await(std::uint64_t Cookie, const std::int64_t* DeadlineNs,
                   const std::function<void()>& Meanwhile, Message& Answer);
    /// Answers that nobody awaits any more.
    void OnStray(std::function<void(std::uint64_t Cookie)> Handler) { Stray_ = std::move(Handler); }

    /// Waits at most LimitMs for everything that was sent to leave.
    void Flush(std::int64_t LimitMs);

    /// CLOCK_MONOTONIC, nanoseconds.
    static std::int64_t NowNs();

    static constexpr std::size_t MostWaiting = 256;

  private:
    struct BusUnref {
        void operator()(sd_bus* Held) const { sd_bus_close_unref(Held); }
    };
    struct WaitingCall {
        std::uint64_t Number;
        Message Call;
    };
    using BusPtr = std::unique_ptr<sd_bus, BusUnref>;

    explicit BusLink(BusPtr Opened);
    void Begin();
    void Collect(std::size_t Most);
    void Close(int Error) noexcept;
    void Rearm() noexcept;
    void Poll(std::int64_t UntilNs);
    int Note(sd_bus_message* Come);
    static int OnMessage(sd_bus_message* Come, void* Self, sd_bus_error* Error);

    Descriptor Wait_;   // an epoll of the connection for what it waits for now
    Descriptor Ended_;  // readable; in Wait when the connection has ended
    int BusFd_ = -1;    // the connection's
    std::uint32_t Watched_ = 0;
    BusPtr Connection_;
    bool IsOpen_ = true;
    std::string Closing_;
    std::uint64_t LastCall_ = 0;
    std::deque<WaitingCall> Calls_;
    std::map<std::uint64_t, Message> Answers_;  // awaited cookies; null: still to come
    std::function<void(std::uint64_t)> Stray_;
};

}  // namespace Tolvar
