#include "host/dbus/wire/BusLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <utility>

#include "platform/Clock.h"

namespace Tolvar {
namespace {

constexpr std::int64_t Never = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t MostUnsent = 10'000;  // messages that the other end has not read

void RequireStream(const Descriptor& Socket) {
    int Type = 0;
    socklen_t Size = sizeof Type;
    const std::string Name = "descriptor " + std::to_string(Socket.Get());
    if (getsockopt(Socket.Get(), SOL_SOCKET, SO_TYPE, &Type, &Size) != 0) {
        throw ErrnoFailure(Name + " is no socket", errno, FailureKind::Input);
    }
    if (Type != SOCK_STREAM) {
        throw RuntimeFailure(FailureKind::Input, Name + " is not a stream socket");
    }
}

// A socket can be handed on, so it is the maker that is looked at: the user's own or nobody's.
void RequireOwnUser(const Descriptor& Socket) {
    ucred Maker{};
    socklen_t Size = sizeof Maker;
    if (getsockopt(Socket.Get(), SOL_SOCKET, SO_PEERCRED, &Maker, &Size) != 0) {
        throw ErrnoFailure("cannot tell who made descriptor " + std::to_string(Socket.Get()), errno,
                           FailureKind::Input);
    }
    if (Maker.uid != geteuid()) {
        throw RuntimeFailure(FailureKind::Input, "the connection belongs to user " +
                                                     std::to_string(Maker.uid) + ", not to " +
                                                     std::to_string(geteuid()));
    }
}

}  // namespace

std::int64_t BusLink::NowNs() {
    timespec Time{};
    clock_gettime(CLOCK_MONOTONIC, &Time);
    return Time.tv_sec * NsPerSecond + Time.tv_nsec;
}

BusLink::BusLink(Descriptor Socket, Side As) {
    const std::string What = "cannot set up the connection";
    RequireStream(Socket);
    RequireOwnUser(Socket);
    sd_bus* Made = nullptr;
    Sent(sd_bus_new(&Made), What);
    Connection_.reset(Made);
    Sent(sd_bus_negotiate_fds(Made, 0), What);  // no message carries a descriptor
    if (As == Side::Server) {
        sd_id128_t Id{};
        Sent(sd_id128_randomize(&Id), What);
        Sent(sd_bus_set_server(Made, 1, Id), What);
    }
    // The connection closes its own; never one that lines for standard error would go to.
    const int Owned = fcntl(Socket.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (Owned < 0) throw ErrnoFailure(What, errno, FailureKind::Library);
    Sent(sd_bus_set_fd(Made, Owned, Owned), What);
    Begin();
    const int Result = sd_bus_start(Made);
    if (Result < 0) Close(-Result);  // the other end may have gone by now
    Rearm();
}

BusLink::BusLink(BusPtr Opened) : Connection_(std::move(Opened)) {
    Begin();
    Rearm();
}

std::unique_ptr<BusLink> BusLink::OnSessionBus() {
    sd_bus* Made = nullptr;
    Sent(sd_bus_open_user(&Made),
         "cannot reach the session bus that DBUS_SESSION_BUS_ADDRESS or XDG_RUNTIME_DIR names");
    return std::unique_ptr<BusLink>(new BusLink(BusPtr(Made)));
}

BusLink::~BusLink() = default;

void BusLink::Begin() {
    Wait_ = Descriptor(epoll_create1(EPOLL_CLOEXEC));
    Ended_ = Descriptor(eventfd(1, EFD_CLOEXEC));
    if (!Wait_ || !Ended_) {
        throw ErrnoFailure("cannot wait for messages", errno, FailureKind::Library);
    }
    Sent(sd_bus_add_filter(Bus(), nullptr, &OnMessage, this), "cannot watch the messages");
}

std::optional<std::int64_t> BusLink::DueInNs() const {
    std::uint64_t DueUs = 0;
    constexpr std::uint64_t NeverUs = std::numeric_limits<std::uint64_t>::max();
    if (!IsOpen_ || sd_bus_get_timeout(Bus(), &DueUs) < 0 || DueUs == NeverUs) return std::nullopt;
    return std::max<std::int64_t>(static_cast<std::int64_t>(DueUs) * 1000 - NowNs(), 0);
}

void BusLink::Close(int Error) noexcept {
    if (!std::exchange(IsOpen_, false)) return;
    const bool HungUp = Error == ECONNRESET || Error == ENOTCONN || Error == EPIPE;
    try {
        Closing_ =
            HungUp ? "the other end has gone" : ErrnoFailure("the connection failed", Error).what();
    } catch (...) {
        Closing_.clear();
    }
    sd_bus_close(Bus());
    // Nothing of the connection would wake the owner any more, who may not know of the end yet.
    epoll_event Event{};
    Event.events = EPOLLIN;
    epoll_ctl(Wait_.Get(), EPOLL_CTL_ADD, Ended_.Get(), &Event);
}

void BusLink::Rearm() noexcept {
    if (!IsOpen_) return;
    const int Fd = sd_bus_get_fd(Bus());
    const int Events = sd_bus_get_events(Bus());
    if (Fd < 0 || Events < 0) return Close(Fd < 0 ? -Fd : -Events);
    const auto Wanted = static_cast<std::uint32_t>(Events);  // poll and epoll share their bits
    if (Fd == BusFd_ && Wanted == Watched_) return;
    epoll_event Event{};
    Event.events = Wanted;
    if (epoll_ctl(Wait_.Get(), Fd == BusFd_ ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, Fd, &Event) != 0) {
        return Close(errno);
    }
    BusFd_ = Fd;
    Watched_ = Wanted;
}

void BusLink::Receive() {
    Collect(MostWaiting);
}

void BusLink::Collect(std::size_t Most) {
    while (IsOpen_ && Calls_.size() < Most) {
        const int Result = sd_bus_process(Bus(), nullptr);
        std::uint64_t Unsent = 0;
        if (Result < 0) Close(-Result);
        if (Result <= 0) break;
        // One who calls on and on and never reads is not there any more.
        if (sd_bus_get_n_queued_write(Bus(), &Unsent) >= 0 && Unsent > MostUnsent) Close(ENOBUFS);
    }
    Rearm();
}

int BusLink::OnMessage(sd_bus_message* Come, void* Self, sd_bus_error*) try {
    return static_cast<BusLink*>(Self)->Note(Come);
} catch (...) {
    return -ENOMEM;
}

// 0 leaves the message to sd-bus, 1 has dealt with it.
int BusLink::Note(sd_bus_message* Come) {
    std::uint8_t Type = 0;
    sd_bus_message_get_type(Come, &Type);
    if (Type == SD_BUS_MESSAGE_METHOD_CALL) {
        const char* Interface = sd_bus_message_get_interface(Come);
        if (Interface != nullptr && std::strcmp(Interface, Wire::Peer) == 0) return 0;
        if (Calls_.size() >= MostWaiting) {
            Refuse(Come, Wire::LimitsExceeded, "too many calls are waiting");
            return 1;
        }
        Calls_.push_back({++LastCall_, Message(sd_bus_message_ref(Come))});
        return 1;
    }
    std::uint64_t Cookie = 0;
    if (sd_bus_message_get_reply_cookie(Come, &Cookie) < 0) return 0;
    const auto Awaited = Answers_.find(Cookie);
    if (Awaited != Answers_.end()) {
        Awaited->second.reset(sd_bus_message_ref(Come));
    } else if (Stray_) {
        Stray_(Cookie);
    }
    return 1;
}

Message BusLink::TakeCall(std::uint64_t After) {
    const auto First = std::ranges::upper_bound(Calls_, After, {}, &WaitingCall::Number);
    if (First == Calls_.end()) return nullptr;
    Message Taken = std::move(First->Call);
    Calls_.erase(First);
    return Taken;
}

std::uint64_t BusLink::Send(sd_bus_message* Call) {
    std::uint64_t Cookie = 0;
    if (!IsOpen_) throw RuntimeFailure(FailureKind::Library, Closing_);
    Sent(sd_bus_send(Bus(), Call, &Cookie), "the message cannot be sent");
    return Cookie;
}

bool BusLink::HasAnswer(std::uint64_t Cookie) const {
    const auto Awaited = Answers_.find(Cookie);
    return Awaited != Answers_.end() && Awaited->second != nullptr;
}

BusLink::Wakening BusLink::Await(std::uint64_t Cookie, const std::int64_t* DeadlineNs,
                                 const std::function<void()>& Meanwhile, Message& Answer) {
    const auto Awaited = Answers_.try_emplace(Cookie).first;
    const auto Done = [&](Wakening Why) {
        Answers_.erase(Awaited);
        return Why;
    };
    while (true) {
        Collect(std::numeric_limits<std::size_t>::max());
        Meanwhile();
        if (Awaited->second) {
            Answer = std::move(Awaited->second);
            return Done(Wakening::Answer);
        }
        if (!IsOpen_) return Done(Wakening::Closed);
        const std::int64_t UntilNs = DeadlineNs == nullptr ? Never : *DeadlineNs;
        if (NowNs() >= UntilNs) return Done(Wakening::Time);
        Poll(UntilNs);
    }
}

void BusLink::Poll(std::int64_t UntilNs) {
    Rearm();
    if (!IsOpen_) return;
    std::int64_t LeftNs = UntilNs == Never ? Never : std::max<std::int64_t>(UntilNs - NowNs(), 0);
    if (const auto DueNs = DueInNs()) LeftNs = std::min(LeftNs, *DueNs);
    const timespec Left{LeftNs / NsPerSecond, LeftNs % NsPerSecond};
    pollfd Ready{Wait_.Get(), POLLIN, 0};
    ppoll(&Ready, 1, LeftNs == Never ? nullptr : &Left, nullptr);
}

void BusLink::Flush(std::int64_t LimitMs) {
    const std::int64_t UntilNs = NowNs() + LimitMs * NsPerMs;
    std::uint64_t Unsent = 0;
    while (IsOpen_ && sd_bus_get_n_queued_write(Bus(), &Unsent) >= 0 && Unsent > 0 &&
           NowNs() < UntilNs) {
        Poll(UntilNs);
        Collect(std::numeric_limits<std::size_t>::max());
    }
}

}  // namespace Tolvar
