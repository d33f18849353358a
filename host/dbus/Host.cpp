#include "host/dbus/Host.h"

#include <unistd.h>

#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "host/dbus/DispatchInterface.h"
#include "host/dbus/Introspection.h"
#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

constexpr int MostDepth = 8;
constexpr std::int64_t LastAnswersMs = 500;

}  // namespace

Host::Host(PlayServer& ServerOf, std::unique_ptr<BusLink> LinkOf, bool IsOnBus,
           std::int64_t SinkLimitMs)
    : Server(ServerOf),
      Link(std::move(LinkOf)),
      OnBus(IsOnBus),
      Sink(*Link, Server.Journal(), SinkLimitMs,
           [this](std::uint64_t Before, std::uint64_t Report) { ServeSince(Before, Report); }),
      Self(std::make_shared<Host*>(this)) {
    Server.Player().OnMsgBoxOb(
        [this](std::string_view Msg, std::string_view Ttl) { Report(Msg, Ttl); });
    Server.Home().Watch({Link->WaitFd()}, [this] { Turn(); });
    TurnLater();
}

Host::~Host() {
    *Self = nullptr;
    Server.Home().Unwatch({Link->WaitFd()});
    Server.Home().Disarm(Due);
    if (Server.HasPlayer()) Server.Player().OnMsgBoxOb({});
}

void Host::TakeName() {
    const int Result = sd_bus_request_name(Link->Bus(), Wire::BusName, 0);
    if (Result == -EEXIST) {
        throw RuntimeFailure(FailureKind::Input,
                             std::string("another server has the name ") + Wire::BusName);
    }
    Sent(Result, std::string("cannot take the name ") + Wire::BusName);
}

// The loop.

void Host::TurnLater() {
    if (std::exchange(TurnIsDue, true)) return;
    Server.Home().Post([Alive = Self] {
        if (*Alive == nullptr) return;
        (*Alive)->TurnIsDue = false;
        (*Alive)->Turn();
    });
}

void Host::Report(std::string_view Msg, std::string_view Ttl) {
    TurnLater();  // what comes meanwhile is taken off the connection, which then wakes nobody
    Sink.Raise(Msg, Ttl);
}

void Host::Turn() {
    if (IsFinished) return;
    Link->Receive();
    if (OwnerWatch && OwnerWatch->Left()) OnOwnerGone();
    if (!Link->Open()) return End();
    if (const Message Call = Link->TakeCall()) {
        Serve(Call.get());
        TurnLater();  // timers come between two calls, and what was sent may not have left
    }
    if (ReleaseDue) End();
    WatchTime();
}

// The connection has deadlines of its own, such as for the peer to say who it is.
void Host::WatchTime() {
    Apartment& Home = Server.Home();
    Home.Disarm(Due);
    if (const auto LeftNs = Link->DueInNs()) {
        Due = Home.Arm(Home.Time().NowNs() + *LeftNs, [this] { Turn(); });
    }
}

void Host::End() {
    if (std::exchange(IsFinished, true)) return;
    ReleaseDue = true;
    if (OnBus) LeaveName();
    if (Server.HasPlayer()) Server.Release();
    AnswerTheRest();
    Link->Flush(LastAnswersMs);
}

// An editor that comes from now on is to get a new server.
void Host::LeaveName() {
    sd_bus_release_name(Link->Bus(), Wire::BusName);
}

// Whoever has called by now is told that the player object is gone.
void Host::AnswerTheRest() {
    if (!Link->Open()) return;
    Link->Receive();
    while (const Message Call = Link->TakeCall())
        Serve(Call.get());
}

// Calls.

// What comes behind the answer, such as a Release, is not the sink's own and waits for its turn.
void Host::ServeSince(std::uint64_t Before, std::uint64_t Report) {
    while (!Link->HasAnswer(Report)) {
        const Message Call = Link->TakeCall(Before);
        if (!Call) return;
        Serve(Call.get());
        Link->Receive();
    }
}

void Host::Serve(sd_bus_message* Call) {
    struct Level {
        int& Of;
        explicit Level(int& Counter) : Of(Counter) { ++Of; }
        ~Level() { --Of; }
    } const Entered(Depth);
    const bool WasFree = Owner.empty();
    try {
        if (Depth > MostDepth) {
            throw WireError(Wire::LimitsExceeded, "too many calls inside reports of calls");
        }
        Carry(Call);
    } catch (const WireError& Wrong) {
        if (WasFree) Disown();  // a call that is refused has changed nothing
        Refuse(Call, Wrong.Name(), Wrong.what());
    } catch (const std::bad_alloc&) {
        Refuse(Call, Wire::Failed, "not enough memory");
    } catch (const std::exception& Cause) {
        Refuse(Call, Wire::Failed, Cause.what());
    } catch (...) {
        Refuse(Call, Wire::Failed, "the call failed and did not say why");
    }
}

void Host::Carry(sd_bus_message* Call) {
    const std::string_view Interface = TextOf(sd_bus_message_get_interface(Call));
    const std::string_view Path = TextOf(sd_bus_message_get_path(Call));
    if (OnBus) Admit(Call);
    if (Interface == Wire::Introspectable) return Answer(Call);
    if (Path != Wire::PlayerPath) {
        throw WireError(Wire::UnknownObject, "there is no object " + std::string(Path));
    }
    if (Interface == Wire::HostingInterface) return CarryHosting(Call);
    if (ReleaseDue) throw WireError(Wire::Failed, "the player object has been released");
    const Message Reply = Dispatch(Server.Player(), Call);
    sd_bus_send(Link->Bus(), Reply.get(), nullptr);
}

void Host::Answer(sd_bus_message* Call) {
    const std::string Name(TextOf(sd_bus_message_get_member(Call)));
    if (Name != "Introspect") throw WireError(Wire::UnknownMethod, "there is no method " + Name);
    RequireSignature(Call, "");
    const std::string Found = IntrospectionOf(TextOf(sd_bus_message_get_path(Call)));
    if (Found.empty()) throw WireError(Wire::UnknownObject, "there is no such object");
    sd_bus_reply_method_return(Call, "s", Found.c_str());
}

void Host::CarryHosting(sd_bus_message* Call) {
    const std::string_view Name = TextOf(sd_bus_message_get_member(Call));
    if (Name == "Advise") return Advise(Call);
    if (Name == "Release") return Release(Call);
    throw WireError(Wire::UnknownMethod, "there is no method " + std::string(Name));
}

void Host::Advise(sd_bus_message* Call) {
    RequireSignature(Call, "o");
    const char* Path = nullptr;
    Taken(sd_bus_message_read(Call, "o", &Path));
    Sink.Advise(std::string(TextOf(sd_bus_message_get_sender(Call))), Path);
    sd_bus_reply_method_return(Call, "");
}

void Host::Release(sd_bus_message* Call) {
    RequireSignature(Call, "");
    if (!std::exchange(ReleaseDue, true) && !Sink.Raising()) {
        if (OnBus) LeaveName();
        Server.Release();
    } else {
        TurnLater();  // the object goes when what reported is done
    }
    sd_bus_reply_method_return(Call, "");
}

// Who may do what on the session bus.

void Host::Admit(sd_bus_message* Call) {
    const std::string Sender(TextOf(sd_bus_message_get_sender(Call)));
    RequireOwnUser(Sender);
    if (OnlyLooks(Call) || Sender == Owner) return;
    if (!Owner.empty()) {
        throw WireError(Wire::Busy, "another editor (" + Owner + ") uses this server");
    }
    OwnerWatch = std::make_unique<NameWatch>(*Link, Sender);
    Owner = Sender;
}

void Host::RequireOwnUser(const std::string& Sender) {
    if (Sender == OwnUser) return;
    sd_bus_creds* Found = nullptr;
    Sent(sd_bus_get_name_creds(Link->Bus(), Sender.c_str(), SD_BUS_CREDS_EUID, &Found),
         "cannot tell whose process calls");
    uid_t User = 0;
    const int Result = sd_bus_creds_get_euid(Found, &User);
    sd_bus_creds_unref(Found);
    if (Result < 0 || User != geteuid()) {
        throw WireError(Wire::AccessDenied, "this server is another user's");
    }
    OwnUser = Sender;
}

void Host::Disown() {
    OwnerWatch.reset();
    Owner.clear();
}

void Host::OnOwnerGone() {
    Disown();
    if (!Sink.Advised()) return;  // a passer-by, such as a command in a shell
    Sink.Forget();
    ReleaseDue = true;
}

}  // namespace Tolvar
