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
constexpr const char* NotSent = "the answer cannot be sent";

}  // namespace

Host::Host(PlayServer& ServerOf, std::unique_ptr<BusLink> LinkOf, bool IsOnBus,
           std::int64_t SinkLimitMs)
    : Server_(ServerOf),
      Link_(std::move(LinkOf)),
      OnBus_(IsOnBus),
      Sink_(*Link_, Server_.Journal(), SinkLimitMs,
            [this](std::uint64_t Before, std::uint64_t Report) { ServeSince(Before, Report); }),
      Self_(std::make_shared<Host*>(this)) {
    Server_.Home().Watch({Link_->WaitFd()}, [this] { Turn(); });
    TurnLater();
    // Last, because a player that reports must find a host.
    Server_.Player().OnMsgBoxOb(
        [this](std::string_view Msg, std::string_view Ttl) { Report(Msg, Ttl); });
}

Host::~Host() {
    *Self_ = nullptr;
    Server_.Home().Unwatch({Link_->WaitFd()});
    Server_.Home().Disarm(Due_);
    if (Server_.HasPlayer()) Server_.Player().OnMsgBoxOb({});
}

void Host::TakeName() {
    const int Result = sd_bus_request_name(Link_->Bus(), Wire::BusName, 0);
    if (Result == -EEXIST) {
        throw RuntimeFailure(FailureKind::Input,
                             std::string("another server has the name ") + Wire::BusName);
    }
    Sent(Result, std::string("cannot take the name ") + Wire::BusName);
}

// The loop.

void Host::TurnLater() {
    if (TurnIsDue_) return;
    Server_.Home().Post([Alive = Self_] {
        if (*Alive == nullptr) return;
        (*Alive)->TurnIsDue_ = false;
        (*Alive)->Turn();
    });
    TurnIsDue_ = true;
}

void Host::Report(std::string_view Msg, std::string_view Ttl) {
    TurnLater();  // what comes meanwhile is taken off the connection, which then wakes nobody
    Sink_.Raise(Msg, Ttl);
}

void Host::Turn() {
    if (IsFinished_) return;
    Link_->Receive();
    if (OwnerWatch_ && OwnerWatch_->Left()) OnOwnerGone();
    if (!Link_->Open()) return End();
    if (const Message Call = Link_->TakeCall()) {
        Serve(Call.get());
        TurnLater();  // timers come between two calls, and what was sent may not have left
    }
    if (ReleaseDue_) End();
    WatchTime();
}

// The connection has deadlines of its own, such as for the peer to say who it is.
void Host::WatchTime() {
    Apartment& Home = Server_.Home();
    Home.Disarm(Due_);
    if (const auto LeftNs = Link_->DueInNs()) {
        Due_ = Home.Arm(Home.Time().NowNs() + *LeftNs, [this] { Turn(); });
    }
}

void Host::End() {
    if (std::exchange(IsFinished_, true)) return;
    ReleaseDue_ = true;
    if (OnBus_) LeaveName();
    if (Server_.HasPlayer()) Server_.Release();
    AnswerTheRest();
    Link_->Flush(LastAnswersMs);
}

// An editor that comes from now on is to get a new server.
void Host::LeaveName() {
    sd_bus_release_name(Link_->Bus(), Wire::BusName);
}

// Whoever has called by now is told that the player object is gone.
void Host::AnswerTheRest() {
    if (!Link_->Open()) return;
    Link_->Receive();
    while (const Message Call = Link_->TakeCall())
        Serve(Call.get());
}

// Calls.

// What comes behind the answer, such as a Release, is not the sink's own and waits for its turn.
void Host::ServeSince(std::uint64_t Before, std::uint64_t Report) {
    while (!Link_->HasAnswer(Report)) {
        const Message Call = Link_->TakeCall(Before);
        if (!Call) return;
        Serve(Call.get());
        Link_->Receive();
    }
}

void Host::Serve(sd_bus_message* Call) {
    struct Level {
        int& Of;
        explicit Level(int& Counter) : Of(Counter) { ++Of; }
        ~Level() { --Of; }
    } const Entered(Depth_);
    const bool WasFree = Owner_.empty();
    try {
        if (Depth_ > MostDepth) {
            throw WireError(Wire::LimitsExceeded, "too many calls inside reports of calls");
        }
        Carry(Call);
    } catch (const WireError& Wrong) {
        if (WasFree) Disown();  // a call that is refused has changed nothing
        RefuseOrEnd(Call, Wrong.Name(), Wrong.what());
    } catch (const std::bad_alloc&) {
        RefuseOrEnd(Call, Wire::Failed, "not enough memory");
    } catch (const std::exception& Cause) {
        RefuseOrEnd(Call, Wire::Failed, Cause.what());
    } catch (...) {
        RefuseOrEnd(Call, Wire::Failed, "the call failed and did not say why");
    }
}

// A caller that gets no answer at all would wait; one whose connection ends knows.
void Host::RefuseOrEnd(sd_bus_message* Call, const char* Name, std::string_view Text) noexcept {
    if (!Refuse(Call, Name, Text)) Link_->Abandon();
}

void Host::Carry(sd_bus_message* Call) {
    const std::string_view Interface = TextOf(sd_bus_message_get_interface(Call));
    const std::string_view Path = TextOf(sd_bus_message_get_path(Call));
    if (OnBus_) Admit(Call);
    if (Interface == Wire::Introspectable) return Answer(Call);
    if (Path != Wire::PlayerPath) {
        throw WireError(Wire::UnknownObject, "there is no object " + std::string(Path));
    }
    if (Interface == Wire::HostingInterface) return CarryHosting(Call);
    if (ReleaseDue_) throw WireError(Wire::Failed, "the player object has been released");
    const Message Reply = Dispatch(Server_.Player(), Call);
    Sent(sd_bus_send(Link_->Bus(), Reply.get(), nullptr), NotSent);
}

void Host::Answer(sd_bus_message* Call) {
    const std::string Name(TextOf(sd_bus_message_get_member(Call)));
    if (Name != "Introspect") throw WireError(Wire::UnknownMethod, "there is no method " + Name);
    RequireSignature(Call, "");
    const std::string Found = IntrospectionOf(TextOf(sd_bus_message_get_path(Call)));
    if (Found.empty()) throw WireError(Wire::UnknownObject, "there is no such object");
    Sent(sd_bus_reply_method_return(Call, "s", Found.c_str()), NotSent);
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
    Sink_.Advise(std::string(TextOf(sd_bus_message_get_sender(Call))), Path);
    Sent(sd_bus_reply_method_return(Call, ""), NotSent);
}

void Host::Release(sd_bus_message* Call) {
    RequireSignature(Call, "");
    if (!std::exchange(ReleaseDue_, true) && !Sink_.Raising()) {
        if (OnBus_) LeaveName();
        Server_.Release();
    } else {
        TurnLater();  // the object goes when what reported is done
    }
    Sent(sd_bus_reply_method_return(Call, ""), NotSent);
}

// Who may do what on the session bus.

void Host::Admit(sd_bus_message* Call) {
    const std::string Sender(TextOf(sd_bus_message_get_sender(Call)));
    RequireOwnUser(Sender);
    if (OnlyLooks(Call) || Sender == Owner_) return;
    if (!Owner_.empty()) {
        throw WireError(Wire::Busy, "another editor (" + Owner_ + ") uses this server");
    }
    OwnerWatch_ = std::make_unique<NameWatch>(*Link_, Sender);
    Owner_ = Sender;
}

void Host::RequireOwnUser(const std::string& Sender) {
    if (Sender == OwnUser_) return;
    sd_bus_creds* Found = nullptr;
    Sent(sd_bus_get_name_creds(Link_->Bus(), Sender.c_str(), SD_BUS_CREDS_EUID, &Found),
         "cannot tell whose process calls");
    uid_t User = 0;
    const int Result = sd_bus_creds_get_euid(Found, &User);
    sd_bus_creds_unref(Found);
    if (Result < 0 || User != geteuid()) {
        throw WireError(Wire::AccessDenied, "this server is another user's");
    }
    OwnUser_ = Sender;
}

void Host::Disown() {
    OwnerWatch_.reset();
    Owner_.clear();
}

void Host::OnOwnerGone() {
    Disown();
    if (!Sink_.Advised()) return;  // a passer-by, such as a command in a shell
    Sink_.Forget();
    ReleaseDue_ = true;
}

}  // namespace Tolvar
