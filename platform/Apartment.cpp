#include "platform/Apartment.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/EventSet.h"

namespace Tolvar {
namespace {

struct Watcher {
    EventSource Source;
    std::shared_ptr<Apartment::Handler> OnReadable;
};

std::int64_t MsAfter(std::int64_t FromNs, std::int64_t Ms) {
    const std::int64_t Most = (Forever - FromNs) / NsPerMs;
    return Ms >= Most ? Forever : FromNs + std::max<std::int64_t>(Ms, 0) * NsPerMs;
}

}  // namespace

struct Apartment::Impl {
    using AlarmKey = std::pair<std::int64_t, std::uint64_t>;

    Impl(Clock& Waiting, Log& Lines) : Time(Waiting), Journal(Lines) {}

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
    decltype(Alarms)::node_type Spare;  // of the last that went: a timer goes on without memory
    std::uint64_t NextOrder = 1;

    std::mutex PostLock;  // guards the posts
    std::deque<Handler> Posts;
    std::unique_ptr<EventSet> Events = EventSet::Make();

    std::vector<Watcher> Watchers;
    std::vector<Watcher> Awaited;      // the watchers of the last wait
    std::vector<EventSource> Sources;  // theirs, in the same order
    std::span<const EventSet::Ready> Ready;

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
        Spare = Alarms.extract(First);
        const Handler Call = std::move(Spare.mapped());
        if (Deliver(Call)) return true;
    }
    return false;
}

void Apartment::Impl::Wait(std::int64_t DueNs) {
    Awaited = Watchers;
    Sources.clear();
    for (const Watcher& Each : Awaited)
        Sources.push_back(Each.Source);
    Ready = {};
    if (!Alarms.empty()) DueNs = std::min(DueNs, Alarms.begin()->first.first);
    if (PostsWaiting() > 0) DueNs = Time.NowNs();
    Time.WaitUntil(DueNs, [this](std::int64_t BoundNs) {
        Ready = Events->Wait(Sources, BoundNs);
        return !Ready.empty() || PostsWaiting() > 0;
    });
}

bool Apartment::Impl::RunWatchers() {
    for (const EventSet::Ready& Each : Ready) {
        const Watcher Waited = Awaited[Each.Index];  // a copy: handlers watch and unwatch
        const auto Live = std::ranges::find(Watchers, Waited.OnReadable, &Watcher::OnReadable);
        if (Live == Watchers.end()) continue;
        if (Each.IsGone) {
            Journal.Write("descriptor " + std::to_string(Waited.Source.Handle) +
                          " was closed while it was watched; it is watched no longer");
            Watchers.erase(Live);
        } else if (Deliver(*Waited.OnReadable)) {
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
    : Time_(Time), Inner_(std::make_unique<Impl>(Time, Journal)) {}

Apartment::~Apartment() = default;

Apartment::AlarmId Apartment::Arm(std::int64_t DueNs, Handler OnDue) {
    const AlarmId Made{DueNs, Inner_->NextOrder++};
    const Impl::AlarmKey Key(Made.DueNs, Made.Order);
    if (auto Node = std::exchange(Inner_->Spare, {})) {
        Node.key() = Key;
        Node.mapped() = std::move(OnDue);
        Inner_->Alarms.insert(std::move(Node));
    } else {
        Inner_->Alarms.emplace(Key, std::move(OnDue));
    }
    return Made;
}

void Apartment::Disarm(AlarmId& Alarm) {
    auto Gone = Inner_->Alarms.extract(Impl::AlarmKey(Alarm.DueNs, Alarm.Order));
    if (Gone) Inner_->Spare = std::move(Gone);
    Alarm = {};
}

void Apartment::Post(Handler Call) {
    {
        const std::lock_guard Guard(Inner_->PostLock);
        Inner_->Posts.push_back(std::move(Call));
    }
    Inner_->Events->Wake();
}

void Apartment::Watch(EventSource Source, Handler OnReadable) {
    auto Kept = std::make_shared<Handler>(std::move(OnReadable));
    const std::size_t Most = Inner_->Watchers.size() + 1;
    Inner_->Watchers.reserve(Most);
    Inner_->Awaited.reserve(Most);  // so that no wait needs memory
    Inner_->Sources.reserve(Most);
    Unwatch(Source);
    Inner_->Watchers.push_back({Source, std::move(Kept)});
}

void Apartment::Unwatch(EventSource Source) {
    std::erase_if(Inner_->Watchers, [&](const Watcher& Each) { return Each.Source == Source; });
}

bool Apartment::RunUntil(std::int64_t DueNs, const std::function<bool()>& Until) {
    if (Inner_->Running) throw std::logic_error("the message loop was entered twice");
    struct Scope {
        bool& Flag;
        ~Scope() { Flag = false; }
    } const Entered{Inner_->Running};
    Inner_->Running = true;
    Inner_->Holds = Until && Until();
    while (!Inner_->Holds && Inner_->Turn(DueNs, Until)) {
    }
    return Inner_->Holds;
}

void Apartment::AdvanceBy(std::int64_t Ms) {
    RunUntil(MsAfter(Time_.NowNs(), Ms));
}

void Apartment::Sleep(std::int64_t Ms) {
    Time_.WaitUntil(MsAfter(Time_.NowNs(), Ms), {});
}

}  // namespace Tolvar
