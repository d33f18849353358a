#include "platform/Apartment.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Posix.h"

namespace Tolvar {
namespace {

std::int64_t MsAfter(std::int64_t FromNs, std::int64_t Ms) {
    const std::int64_t Most = (Forever - FromNs) / NsPerMs;
    return Ms >= Most ? Forever : FromNs + std::max<std::int64_t>(Ms, 0) * NsPerMs;
}

struct Watcher {
    int Fd;
    std::shared_ptr<Apartment::Handler> OnReadable;
};

}  // namespace

struct Apartment::Impl {
    using AlarmKey = std::pair<std::int64_t, std::uint64_t>;

    Impl(Clock& TheTime, Log& TheJournal)
        : Time(TheTime), Journal(TheJournal), Wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        if (!Wake) {
            throw ErrnoFailure("cannot make the message loop's wake-up", errno,
                               FailureKind::Device);
        }
    }

    bool Turn(std::int64_t DueNs, const std::function<bool()>& Until);
    bool RunPosts();
    bool RunAlarms(std::int64_t LatestNs);
    bool RunWatchers();
    void Wait(std::int64_t DueNs);
    bool Deliver(const Handler& Call);
    std::size_t PostsWaiting();

    Clock& Time;
    Log& Journal;

    std::map<AlarmKey, Handler> Alarms;
    std::uint64_t NextOrder = 1;

    std::mutex PostLock;  // guards the two below
    std::deque<Handler> Posts;
    bool WakeIsSet = false;
    Descriptor Wake;

    std::vector<Watcher> Watchers;
    std::vector<Watcher> Polled;  // the watchers of the last wait, beside their descriptors
    std::vector<pollfd> Fds;      // the wake-up, then one per Polled

    const std::function<bool()>* Asked = nullptr;
    bool Holds = false;
    bool Running = false;
};

/// Runs Call and asks the caller's condition; true when the run is to end.
bool Apartment::Impl::Deliver(const Handler& Call) {
    try {
        Call();
    } catch (const std::exception& Thrown) {
        Journal.Write(std::string("a handler failed: ") + Thrown.what());
    } catch (...) {
        Journal.Write("a handler failed and did not say why");
    }
    Holds = *Asked && (*Asked)();
    return Holds;
}

std::size_t Apartment::Impl::PostsWaiting() {
    const std::lock_guard Guard(PostLock);
    return Posts.size();
}

bool Apartment::Impl::RunPosts() {
    for (std::size_t Left = PostsWaiting(); Left > 0; --Left) {
        Handler Call;
        {
            const std::lock_guard Guard(PostLock);
            Call = std::move(Posts.front());
            Posts.pop_front();
        }
        if (Deliver(Call)) return true;
    }
    return false;
}

bool Apartment::Impl::RunAlarms(std::int64_t LatestNs) {
    // What a handler arms waits for the next turn, so that posts and descriptors are not starved.
    const std::uint64_t OrderLimit = NextOrder;
    while (!Alarms.empty()) {
        const auto First = Alarms.begin();
        if (First->first.first > LatestNs || First->first.second >= OrderLimit) break;
        const auto Taken = Alarms.extract(First);
        if (Deliver(Taken.mapped())) return true;
    }
    return false;
}

void Apartment::Impl::Wait(std::int64_t DueNs) {
    Polled = Watchers;
    Fds.assign(1, pollfd{Wake.Get(), POLLIN, 0});
    for (const Watcher& Each : Polled)
        Fds.push_back(pollfd{Each.Fd, POLLIN, 0});
    const bool Busy = PostsWaiting() > 0;
    if (!Alarms.empty()) DueNs = std::min(DueNs, Alarms.begin()->first.first);
    Time.WaitUntil(Busy ? Time.NowNs() : DueNs, Fds);
    if (Fds.front().revents != 0) {
        const std::lock_guard Guard(PostLock);
        eventfd_t Ignored = 0;
        eventfd_read(Wake.Get(), &Ignored);
        WakeIsSet = false;
    }
}

bool Apartment::Impl::RunWatchers() {
    for (std::size_t I = 0; I < Polled.size(); ++I) {
        const Watcher& Ready = Polled[I];
        const short Events = Fds[I + 1].revents;
        const auto Live = std::ranges::find(Watchers, Ready.OnReadable, &Watcher::OnReadable);
        if (Events == 0 || Live == Watchers.end()) continue;
        if ((Events & POLLNVAL) != 0) {
            Journal.Write("descriptor " + std::to_string(Ready.Fd) +
                          " was closed while it was watched; it is watched no longer");
            Watchers.erase(Live);
        } else if (Deliver(*Ready.OnReadable)) {
            return true;
        }
    }
    return false;
}

/// One round of everything that is ready, with at most one wait; false when the run is over.
bool Apartment::Impl::Turn(std::int64_t DueNs, const std::function<bool()>& Until) {
    Asked = &Until;
    if (RunPosts() || RunAlarms(std::min(Time.NowNs(), DueNs))) return false;
    const bool Last = Time.NowNs() >= DueNs && PostsWaiting() == 0 &&
                      (Alarms.empty() || Alarms.begin()->first.first > DueNs);
    Wait(DueNs);
    if (RunWatchers()) return false;
    return !Last;
}

Apartment::Apartment(Clock& Time, Log& Journal)
    : TimeOf(Time), Inner(std::make_unique<Impl>(Time, Journal)) {}

Apartment::~Apartment() = default;

Apartment::AlarmId Apartment::Arm(std::int64_t DueNs, Handler OnDue) {
    const AlarmId Made{DueNs, Inner->NextOrder++};
    Inner->Alarms.emplace(Impl::AlarmKey(Made.DueNs, Made.Order), std::move(OnDue));
    return Made;
}

void Apartment::Disarm(AlarmId& Alarm) {
    Inner->Alarms.erase(Impl::AlarmKey(Alarm.DueNs, Alarm.Order));
    Alarm = {};
}

void Apartment::Post(Handler Call) {
    const std::lock_guard Guard(Inner->PostLock);
    Inner->Posts.push_back(std::move(Call));
    if (!std::exchange(Inner->WakeIsSet, true)) eventfd_write(Inner->Wake.Get(), 1);
}

void Apartment::Watch(int Fd, Handler OnReadable) {
    Unwatch(Fd);
    Inner->Watchers.push_back({Fd, std::make_shared<Handler>(std::move(OnReadable))});
}

void Apartment::Unwatch(int Fd) {
    std::erase_if(Inner->Watchers, [Fd](const Watcher& Each) { return Each.Fd == Fd; });
}

bool Apartment::RunUntil(std::int64_t DueNs, const std::function<bool()>& Until) {
    if (Inner->Running) throw std::logic_error("the message loop was entered twice");
    struct Scope {
        bool& Flag;
        ~Scope() { Flag = false; }
    } const Entered{Inner->Running};
    Inner->Running = true;
    Inner->Holds = Until && Until();
    while (!Inner->Holds && Inner->Turn(DueNs, Until)) {
    }
    return Inner->Holds;
}

void Apartment::AdvanceBy(std::int64_t Ms) {
    RunUntil(MsAfter(TimeOf.NowNs(), Ms));
}

void Apartment::Sleep(std::int64_t Ms) {
    TimeOf.WaitUntil(MsAfter(TimeOf.NowNs(), Ms), {});
}

}  // namespace Tolvar
