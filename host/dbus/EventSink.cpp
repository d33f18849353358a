#include "host/dbus/EventSink.h"

#include <algorithm>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t NsPerMs = 1'000'000;
constexpr std::int64_t MostNs = 10'000 * NsPerMs;

void AppendReport(sd_bus_message* To, std::string_view Msg, std::string_view Ttl) {
    Sent(sd_bus_message_append(To, "ss", WireText(Msg).c_str(), WireText(Ttl).c_str()),
         "a report cannot be written");
}

}  // namespace

EventSink::EventSink(BusLink& LinkOf, Log& JournalOf, std::int64_t LimitMs, CallServer Serve)
    : Link(LinkOf), Journal(JournalOf), LimitNs(LimitMs * NsPerMs), ServeSince(std::move(Serve)) {
    Link.OnStray([this](std::uint64_t Cookie) { OnLateAnswer(Cookie); });
}

EventSink::~EventSink() {
    Link.OnStray({});
}

void EventSink::Advise(const std::string& Destination, const std::string& Path) {
    DestinationOf = Destination;
    PathOf = Path;
    Dropped = false;
}

void EventSink::Raise(std::string_view Msg, std::string_view Ttl) {
    if (!Link.Open()) return;
    if (Listening()) {
        Tell(Msg, Ttl);
    } else {
        Signal(Msg, Ttl);
    }
}

void EventSink::Signal(std::string_view Msg, std::string_view Ttl) {
    sd_bus_message* Made = nullptr;
    Sent(sd_bus_message_new_signal(Link.Bus(), &Made, Wire::PlayerPath, Wire::EventInterface,
                                   "MsgBoxOb"),
         "a report cannot be made");
    const Message Report(Made);
    AppendReport(Made, Msg, Ttl);
    sd_bus_send(Link.Bus(), Made, nullptr);
}

void EventSink::Tell(std::string_view Msg, std::string_view Ttl) {
    sd_bus_message* Made = nullptr;
    Sent(sd_bus_message_new_method_call(Link.Bus(), &Made,
                                        DestinationOf.empty() ? nullptr : DestinationOf.c_str(),
                                        PathOf.c_str(), Wire::EventInterface, "MsgBoxOb"),
         "a report cannot be made");
    const Message Report(Made);
    AppendReport(Made, Msg, Ttl);
    Link.Receive();  // what is there by now was called before this report
    if (!Link.Open()) return;

    const std::uint64_t Cookie = Link.Send(Made);
    Message Answer;
    ++Out;
    const BusLink::Wakening Why = AwaitAnswer(Cookie, Answer);
    --Out;
    if (Why == BusLink::Wakening::Time) {
        Dropped = true;
        UnansweredCookie = Cookie;
        Journal.Write("the editor's sink did not answer \"" + std::string(Ttl) +
                      "\" in time; it is told nothing more until it does");
    } else if (Why == BusLink::Wakening::Answer) {
        const sd_bus_error* Error = sd_bus_message_get_error(Answer.get());
        if (Error == nullptr) return;
        Journal.Write("the editor's sink answered \"" + std::string(Ttl) + "\" with " +
                      Error->name + ": " + (Error->message == nullptr ? "" : Error->message));
    }
}

BusLink::Wakening EventSink::AwaitAnswer(std::uint64_t Cookie, Message& Answer) {
    const std::uint64_t Before = Link.Arrived();
    const std::int64_t LastNs = BusLink::NowNs() + MostNs;
    std::int64_t DeadlineNs = BusLink::NowNs() + LimitNs;
    const auto ServeItsCalls = [&] {
        const std::int64_t BeganNs = BusLink::NowNs();
        ServeSince(Before, Cookie);
        DeadlineNs = std::min(DeadlineNs + BusLink::NowNs() - BeganNs, LastNs);
    };
    return Link.Await(Cookie, &DeadlineNs, ServeItsCalls, Answer);
}

void EventSink::OnLateAnswer(std::uint64_t Cookie) {
    if (!Dropped || Cookie != UnansweredCookie) return;
    Dropped = false;
    Journal.Write("the editor's sink answers again");
}

}  // namespace Tolvar
