#include "host/client/ServerLink.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include "platform/Clock.h"

namespace Tolvar {
namespace {

const std::string NoCall = "the call cannot be written";
constexpr int MostLastMs = 5000;  // for letting go when nobody waits to hear of it
constexpr const char* OverText = "the playback server has been released";

// Errors with which a bus answers in the place of a process that is gone.
bool TellsOfDeath(std::string_view Name) {
    return Name == SD_BUS_ERROR_NO_REPLY || Name == SD_BUS_ERROR_SERVICE_UNKNOWN ||
           Name == SD_BUS_ERROR_NAME_HAS_NO_OWNER;
}

// The answer of the bus itself to a call with a name and a number.
void RequireStarted(sd_bus* Bus) {
    sd_bus_error Error = SD_BUS_ERROR_NULL;
    const int Result = sd_bus_call_method(Bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                          "org.freedesktop.DBus", "StartServiceByName", &Error,
                                          nullptr, "su", Wire::BusName, std::uint32_t{0});
    const PlayDllError Refused{
        std::string(TextOf(Error.name)),
        "no playback server on the session bus: " + std::string(TextOf(Error.message))};
    sd_bus_error_free(&Error);
    if (Result < 0) throw PlayDllError(Refused);
}

}  // namespace

ServerLink::ServerLink(std::unique_ptr<ServerProcess> Started, int LimitOfMs)
    : Process_(std::move(Started)), LimitMs_(std::max(LimitOfMs, 1)) {
    if (Process_) {
        Link_ = std::make_unique<BusLink>(Process_->TakeSocket(), BusLink::Side::Client);
    } else {
        Link_ = BusLink::OnSessionBus();
        FindOnBus();
    }
    Advise();
}

ServerLink::~ServerLink() {
    try {
        ServerGone_ = nullptr;
        Sink_ = nullptr;  // what it stands on may be gone by now
        LimitMs_ = std::min(LimitMs_, MostLastMs);
        if (!Gone()) Release();
    } catch (const std::exception&) {
        // The server is gone or will find the connection closed: either is an end.
    }
    ServerWatch_.reset();
    Link_.reset();  // before the process is awaited
}

void ServerLink::FindOnBus() {
    sd_bus_creds* Found = nullptr;
    const auto Look = [&] {
        return sd_bus_get_name_creds(Link_->Bus(), Wire::BusName, SD_BUS_CREDS_UNIQUE_NAME, &Found);
    };
    // One that somebody has started by hand need not be one that the bus can start.
    if (Look() < 0) {
        RequireStarted(Link_->Bus());
        Sent(Look(), "the playback server on the session bus cannot be found");
    }
    const char* Unique = nullptr;
    if (sd_bus_creds_get_unique_name(Found, &Unique) >= 0) Destination_ = Unique;
    sd_bus_creds_unref(Found);
    // By its own name, because a call to the well-known one would start another server, without
    // the wave.
    ServerWatch_ = std::make_unique<NameWatch>(*Link_, Destination_);
}

void ServerLink::Advise() {
    const Message Asked = NewCall(Wire::HostingInterface, "Advise");
    Sent(sd_bus_message_append(Asked.get(), "o", Wire::SinkPath), NoCall);
    try {
        Finish(Asked);
    } catch (const PlayDllError&) {
        if (!Gone() || !Process_ || GaveUp_) throw;
        Link_.reset();  // so that it ends, if it has not
        throw PlayDllError("", "the playback server did not start (exit code " +
                                   std::to_string(Process_->Await()) + ")");
    }
}

void ServerLink::OnServerGone(std::function<void(const std::string&)> Handler) {
    ServerGone_ = std::move(Handler);
}

// Calls.

void ServerLink::RequireThere(const std::string& Known) const {
    if (Gone()) throw PlayDllError("", Known + ": " + WhyGone_);
}

Message ServerLink::NewCall(const char* Interface, const char* Member) {
    RequireThere(Member);
    sd_bus_message* Made = nullptr;
    Sent(sd_bus_message_new_method_call(Link_->Bus(), &Made,
                                        Destination_.empty() ? nullptr : Destination_.c_str(),
                                        Wire::PlayerPath, Interface, Member),
         NoCall);
    return Message(Made);
}

Message ServerLink::Finish(const Message& Asked, const char* Known) {
    const std::string Member(Known != nullptr ? Known : sd_bus_message_get_member(Asked.get()));
    Message Answer;
    Link_->Receive();  // so that a server that is gone is found to be gone
    if (Link_->Open()) Answer = AwaitAnswer(Link_->Send(Asked.get()), Member);
    if (!Answer) FailGone(Member, "the playback server is gone: " + Link_->WhyClosed());
    const sd_bus_error* Error = sd_bus_message_get_error(Answer.get());
    if (Error == nullptr) return Answer;
    if (!Destination_.empty() && TellsOfDeath(Error->name)) {
        FailGone(Member, "the playback server is gone: it has left the session bus");
    }
    throw PlayDllError(Error->name, std::string(TextOf(Error->message)));
}

// Null when the connection is gone. A report is a sign of life, and the time that the sink takes is
// the editor's own.
Message ServerLink::AwaitAnswer(std::uint64_t Cookie, const std::string& Member) {
    const auto Later = [this] { return BusLink::NowNs() + LimitMs_ * NsPerMs; };
    std::int64_t DeadlineNs = Later();
    const auto Meanwhile = [&] {
        if (Link_->CallsWaiting() == 0) return;
        ServeReports();
        DeadlineNs = Later();
    };
    Message Answer;
    if (Link_->Await(Cookie, &DeadlineNs, Meanwhile, Answer) != BusLink::Wakening::Time)
        return Answer;
    Link_->Abandon();
    if (Process_) Process_->Await(0);
    GaveUp_ = true;
    FailGone(Member, "the playback server has not answered for " + std::to_string(LimitMs_) +
                         " ms and was given up");
}

void ServerLink::FailGone(const std::string& Member, const std::string& Why) {
    NoteGone(Why);
    throw PlayDllError("", Member + ": " + Why);
}

void ServerLink::NoteGone(const std::string& Why) {
    if (Gone()) return;
    WhyGone_ = Why;
    if (const auto Handler = std::exchange(ServerGone_, nullptr)) Handler(Why);
}

void ServerLink::Call(const char* Member) {
    Finish(NewCall(Wire::PlayerInterface, Member));
}

void ServerLink::CallAt(const char* Member, std::int32_t Pos) {
    const Message Asked = NewCall(Wire::PlayerInterface, Member);
    Sent(sd_bus_message_append_basic(Asked.get(), 'i', &Pos), NoCall);
    Finish(Asked);
}

void ServerLink::CallInOut(const char* Member, std::int32_t& Value) {
    const Message Asked = NewCall(Wire::PlayerInterface, Member);
    Sent(sd_bus_message_append_basic(Asked.get(), 'i', &Value), NoCall);
    const Message Answer = Finish(Asked);
    Sent(sd_bus_message_read_basic(Answer.get(), 'i', &Value), "the answer cannot be read");
}

void ServerLink::CallHandOver(const std::array<std::int32_t, 4>& Format,
                              std::span<const std::int32_t> Left,
                              std::span<const std::int32_t> Right) {
    const Message Asked = NewCall(Wire::PlayerInterface, "WriteWaveMemo");
    for (const std::int32_t& Value : Format)
        Sent(sd_bus_message_append_basic(Asked.get(), 'i', &Value), NoCall);
    for (const auto List : {Left, Right}) {
        Sent(sd_bus_message_append_array(Asked.get(), 'i', List.data(), List.size_bytes()), NoCall);
    }
    Finish(Asked);
}

std::int32_t ServerLink::Get(const char* Property) {
    RequireThere(Property);
    const Message Asked = NewCall(Wire::Properties, "Get");
    Sent(sd_bus_message_append(Asked.get(), "ss", Wire::PlayerInterface, Property), NoCall);
    const Message Answer = Finish(Asked, Property);
    std::int32_t Value = 0;
    Sent(sd_bus_message_read(Answer.get(), "v", "i", &Value), "the answer cannot be read");
    return Value;
}

void ServerLink::Set(const char* Property, const char* Type, const void* Value) {
    RequireThere(Property);
    const Message Asked = NewCall(Wire::Properties, "Set");
    sd_bus_message* const To = Asked.get();
    Sent(sd_bus_message_append(To, "ss", Wire::PlayerInterface, Property), NoCall);
    Sent(sd_bus_message_open_container(To, 'v', Type), NoCall);
    Sent(sd_bus_message_append_basic(To, *Type, Value),
         std::string(Property) + " cannot be written");
    Sent(sd_bus_message_close_container(To), NoCall);
    Finish(Asked, Property);
}

int ServerLink::Release() {
    if (Reporting_ > 0) {
        throw PlayDllError("", "Release: a report is not a moment to let go of the server");
    }
    if (!std::exchange(Released_, true) && !Gone()) {
        try {
            Finish(NewCall(Wire::HostingInterface, "Release"));
            WhyGone_ = OverText;
        } catch (const PlayDllError&) {
            if (!Gone()) throw;
        }
    }
    // Its recording may still be on the way to the disk.
    return Process_ ? Process_->Await(LimitMs_) : 0;
}

// Reports.

void ServerLink::Dispatch() {
    if (Gone()) return;
    Link_->Receive();
    ServeReports();
    Link_->Receive();
    if (!Link_->Open()) {
        NoteGone("the playback server is gone: " + Link_->WhyClosed());
    } else if (ServerWatch_ && ServerWatch_->Left()) {
        NoteGone("the playback server is gone: it has left the session bus");
    }
}

void ServerLink::ServeReports() {
    while (const Message Report = Link_->TakeCall()) {
        ServeReport(Report.get());
        if (!Gone()) Link_->Receive();
    }
}

void ServerLink::Tell(const char* Msg, const char* Ttl) {
    struct Level {
        int& Of;
        explicit Level(int& Counter) : Of(Counter) { ++Of; }
        ~Level() { --Of; }
    } const Entered(Reporting_);
    if (const auto Handler = Sink_) Handler(Msg, Ttl);
}

void ServerLink::ServeReport(sd_bus_message* Report) {
    try {
        const char* Msg = nullptr;
        const char* Ttl = nullptr;
        if (sd_bus_message_is_method_call(Report, Wire::EventInterface, "MsgBoxOb") <= 0) {
            throw WireError(Wire::UnknownMethod, "only MsgBoxOb is known here");
        }
        if (!Destination_.empty() && TextOf(sd_bus_message_get_sender(Report)) != Destination_) {
            throw WireError(Wire::AccessDenied, "only the playback server reports here");
        }
        RequireSignature(Report, "ss");
        Taken(sd_bus_message_read(Report, "ss", &Msg, &Ttl));
        Tell(Msg, Ttl);
        sd_bus_reply_method_return(Report, "");
    } catch (const WireError& Wrong) {
        Refuse(Report, Wrong.Name(), Wrong.what());
    } catch (const std::exception& Cause) {
        Refuse(Report, Wire::Failed, Cause.what());
    } catch (...) {
        Refuse(Report, Wire::Failed, "the sink failed and did not say why");
    }
}

}  // namespace Tolvar
