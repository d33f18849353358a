#include "host/dbus/EventSink.h"

#include <algorithm>
#include <utility>

#include "platform/Clock.h"

namespace Tolvar {
namespace {

constexpr std::int64_t MostNs = 10'000 * NsPerMs;

void AppendReport(sd_bus_message* To, std::string_view Msg, std::string_view Ttl) {
    Sent(sd_bus_message_append(To, "ss", WireText(Msg).c_str(), WireText(Ttl).c_str()),
         "a report cannot be written");
}

}  // namespace

EventSink::EventSink(BusLink& LinkOf, Log& JournalOf, std::int64_t LimitMs, CallServer Serve)
    : Link_(LinkOf),
      Journal_(JournalOf),
      LimitNs_(LimitMs * NsPerMs),
      ServeSince_(std::move(Serve)) {
    Link_.OnStray([this](std::uint64_t Cookie) { OnLateAnswer(Cookie); });
}

EventSink::~EventSink() {
    Link_.OnStray({});
}

void EventSink::Advise(const std::string& Destination, const std::string& Path) {
    Destination_ = Destination;
    Path_ = Path;
    Dropped_ = false;
}

void EventSink::Raise(std::string_view Msg, std::string_view Ttl) {
    if (!Link_.Open()) return;
    if (Listening()) {
        Tell(Msg, Ttl);
    } else {
        Signal(Msg, Ttl);
    }
}

void EventSink::Signal(std::string_view Msg, std::string_view Ttl) {
    sd_bus_message* Made = nullptr;
    Sent(sd_bus_message_new_signal(Link_.Bus(), &Made, Wire::PlayerPath, Wire::EventInterface,
                                   "MsgBoxOb"),
         "a report cannot be made");
    const Message Report(Made);
    AppendReport(Made, Msg, Ttl);
    sd_bus_send(Link_.Bus(), Made, nullptr);
}

void EventSink::Tell(std::string_view Msg, std::string_view Ttl) {
    sd_bus_message* Made = nullptr;
    Sent(sd_bus_message_new_method_call(Link_.Bus(), &Made,
                                        Destination_.empty() ? nullptr : Destination_.c_str(),
                                        Path_.c_str(), Wire::EventInterface, "MsgBoxOb"),
         "a report cannot be made");
    const Message Report(Made);
    AppendReport(Made, Msg, Ttl);
    Link_.Receive();  // what is there by now was called before this report
    if (!Link_.Open()) return;

    const std::uint64_t Cookie = Link_.Send(Made);
    Message Answer;
    ++Out_;
    const BusLink::Wakening Why = AwaitAnswer(Cookie, Answer);
    --Out_;
    if (Why == BusLink::Wakening::Time) {
        Dropped_ = true;
        UnansweredCookie_ = Cookie;
        Journal_.Write("the editor's sink did not answer \"" + std::string(Ttl) +
                       "\" in time; it is told nothing more until it does");
    } else if (Why == BusLink::Wakening::Answer) {
        const sd_bus_error* Error = sd_bus_message_get_error(Answer.get());
        if (Error == nullptr) return;
        Journal_.Write("the editor's sink answered \"" + std::string(Ttl) + "\" with " +
                       Error->name + ": " + (Error->message == nullptr ? "" : Error->message));
    }
}

BusLink::Wakening EventSink::AwaitAnswer(std::uint64_t Cookie, Message& Answer) {
    const std::uint64_t Before = Link_.Arrived();
    const std::int64_t LastNs = BusLink::NowNs() + MostNs;
    std::int64_t DeadlineNs = BusLink::NowNs() + LimitNs_;
    const auto ServeItsCalls = [&] {
        const std::int64_t BeganNs = BusLink::NowNs();
        ServeSince_(Before, Cookie);
        DeadlineNs = std::min(DeadlineNs + BusLink::NowNs() - BeganNs, LastNs);
    };
    return Link_.Await(Cookie, &DeadlineNs, ServeItsCalls, Answer);
}

void EventSink::OnLateAnswer(std::uint64_t Cookie) {
    if (!Dropped_ || Cookie != UnansweredCookie_) return;
    Dropped_ = false;
    Journal_.Write("the editor's sink answers again");
}

}  // namespace Tolvar
