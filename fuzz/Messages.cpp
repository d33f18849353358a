#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/Targets.h"
#include "host/dbus/DispatchInterface.h"
#include "host/dbus/Host.h"
#include "tests/support/BlockLists.h"

namespace Tolvar::Fuzz {
namespace {

constexpr int MostSteps = 64;

class Script {
  public:
    explicit Script(Bytes Input) : Rest_(Input) {}

    bool AtEnd() const { return Rest_.empty(); }
    std::string Taken(std::size_t Most) {
        const Bytes First = Rest_.first(std::min(Most, Rest_.size()));
        Rest_ = Rest_.subspan(First.size());
        return {First.begin(), First.end()};
    }
    std::uint8_t Byte() { return Rest_.empty() ? 0 : static_cast<std::uint8_t>(Taken(1)[0]); }
    std::int32_t Int() {
        std::uint32_t Value = 0;
        for (unsigned Shift = 0; Shift < 32; Shift += 8)
            Value |= std::uint32_t{Byte()} << Shift;
        return static_cast<std::int32_t>(Value);
    }
    // Mostly what a caller may mean, sometimes anything.
    std::int32_t Number() {
        const std::uint8_t First = Byte();
        return First == 255 ? Int() : First - 1;
    }
    // Too short for the path of a file that matters.
    std::string Text() { return Taken(Byte() % 8U); }

  private:
    Bytes Rest_;
};

/// A server, and its editor's end of the socket.
class Conversation {
  public:
    /// Raw: the editor has no link, and what Say says is all that it says.
    explicit Conversation(bool Raw) {
        std::array<int, 2> Pair{};
        Demand(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, Pair.data()) == 0,
               "there is a socket pair");
        Socket_ = Descriptor(Pair[0]);
        auto Theirs = std::make_unique<BusLink>(Descriptor(Pair[1]), BusLink::Side::Server);
        // The sink has no time: it answers in advance, later or not at all.
        Hosting_.emplace(Server_, std::move(Theirs), false, 0);
        if (Raw) return;
        Link.emplace(Descriptor(dup(Socket_.Get())), BusLink::Side::Client);
        while (sd_bus_is_ready(Link->Bus()) == 0)
            Pass(0);
    }

    Message New(const char* Path, const char* Interface, const char* Member) {
        sd_bus_message* Made = nullptr;
        sd_bus_message_new_method_call(Link->Bus(), &Made, nullptr, Path, Interface, Member);
        Demand(Made != nullptr, "a call can be made");
        return Message(Made);
    }
    // More than the socket holds stays unsaid.
    void Say(const std::string& Bytes) {
        send(Socket_.Get(), Bytes.data(), Bytes.size(), MSG_NOSIGNAL);
    }
    void Pass(int Ms) {
        if (!Hosting_->Finished()) Hosting_->TurnLater();
        // A wave of a few frames that goes round is filled anew a thousand times a second.
        Server_.Home().AdvanceBy(std::min(Ms, LeftMs_));
        LeftMs_ -= std::min(Ms, LeftMs_);
        if (Link) Link->Receive();
        Check();
    }
    void HangUp() {
        Pass(0);
        Link.reset();
        Socket_.Close();
        Pass(1000);
        Demand(Hosting_->Finished() && !Server_.HasPlayer(), "an editor that has gone is let go");
    }

    std::optional<BusLink> Link;

  private:
    void Check() const {
        const PlayerState& State = Server_.State();
        Demand(State.FmtChannal >= 0 && State.FmtChannal <= 2, "channels are 1 or 2");
        Demand(State.FmtBits == 0 || State.FmtBits == 8 || State.FmtBits == 16, "bits are 8 or 16");
        Demand(State.WaveNos == 0 || (State.FmtChannal > 0 && State.FmtBits > 0 && State.BlkCarrL),
               "a wave that is there is there whole");
        Demand(State.PlayRunningState >= 0 && State.PlayRunningState <= 3, "a run state is known");
        Demand(State.PlayTempoFor == State.PlayTempoFor, "a tempo is a number");
        Demand(!Hosting_->Finished() || !Server_.HasPlayer(), "what has ended holds no player");
    }

    int LeftMs_ = 3000;
    Descriptor Socket_;
    PlayServer Server_{
        {.VirtualClock = true, .LogPath = "/dev/null", .OnBox = [](std::string_view) {}}};
    std::optional<Host> Hosting_;
};

template <typename... Values>
void Append(sd_bus_message* To, const char* Types, Values... Each) {
    Demand(sd_bus_message_append(To, Types, Each...) >= 0, "an argument can be written");
}

void WriteList(Script& From, sd_bus_message* To) {
    std::array<std::string, 5> Names;
    std::vector<Testing::ListEntry> Blocks(From.Byte() % 6U);
    for (std::size_t I = 0; I < Blocks.size(); ++I) {
        auto& [Type, Len, Start, Name, FilePos, Channels, Bits] = Blocks[I];
        Name = Names[I] = From.Byte() % 2 == 0 ? "/proc/self/exe" : From.Text();
        for (std::int32_t* Field : {&Len, &Type, &Start, &FilePos, &Channels, &Bits})
            *Field = From.Number();
    }
    std::vector<std::int32_t> List = Testing::ListOf(Blocks);
    if (From.Byte() % 8 == 0) List.resize(List.size() / 2);
    sd_bus_message_append_array(To, 'i', List.data(), List.size() * sizeof(std::int32_t));
}

// A value of the type that the letter says: one of D-Bus, or I and N, which name the player's
// interface and Member, L for a block list, or R for a rate: one whose buffer would take gigabytes
// is for the machine to refuse, not for this.
void Write(Script& From, char Type, const DispatchMember& Member, sd_bus_message* To) {
    if (Type == 'i') Append(To, "i", From.Number());
    if (Type == 'R') Append(To, "i", From.Int() % 12'000);
    if (Type == 'b') Append(To, "b", From.Byte() % 2);
    if (Type == 'd') {
        const bool Small = From.Byte() % 4 == 0;
        Append(To, "d", Small ? From.Byte() / 16.0 : double{std::bit_cast<float>(From.Int())});
    }
    if (Type == 's') Append(To, "s", WireText(From.Text()).c_str());
    if (Type == 'o') Append(To, "o", Wire::SinkPath);
    if (Type == 'I') Append(To, "s", Wire::PlayerInterface);
    if (Type == 'N') Append(To, "s", Member.Name);
    if (Type == 'L') WriteList(From, To);
    if (Type == 'v') {
        const unsigned Other = From.Byte();
        const char Own = Member.Is == DispatchMember::Kind::Let ? *Member.In : 'i';
        const std::string Inner(1, Other < 4 ? "ibds"[Other] : Own);
        sd_bus_message_open_container(To, 'v', Inner.c_str());
        Write(From, Inner[0], Member, To);
        sd_bus_message_close_container(To);
    }
}

constexpr struct {
    const char *Interface, *Member, *Types;
} Offers[]{
    {Wire::PlayerInterface, nullptr, nullptr},  // a member, which most calls are to
    {Wire::Properties, "Set", "INv"},          {Wire::Properties, "Get", "IN"},
    {Wire::Properties, "GetAll", "I"},         {Wire::HostingInterface, "Advise", "o"},
    {Wire::HostingInterface, "Release", ""},   {Wire::Introspectable, "Introspect", ""},
};

void MakeCall(Script& From, Conversation& With) {
    const std::size_t Row = From.Byte() % 16U;
    const auto Members = PlayDllClassMembers();
    const DispatchMember& Member = Members[From.Byte() % Members.size()];
    auto [Interface, Name, OfTypes] = Offers[Row < std::size(Offers) ? Row : 0];
    std::string Types = Name != nullptr ? OfTypes : Member.In;
    if (Types == "iiiiaiai") Types = "iiRiLL";
    const char* Path = Wire::PlayerPath;
    const unsigned Wrong = From.Byte() % 16U;
    if (Wrong == 1) Path = std::array{"/", "/org", Wire::SinkPath}[From.Byte() % 3U];
    if (Wrong == 2) Interface = Offers[From.Byte() % std::size(Offers)].Interface;
    if (Wrong == 3) Interface = nullptr;
    if (Wrong == 4) Types = From.Taken(From.Byte() % 6U);  // too few for a hand-over
    const Message Call = With.New(Path, Interface, Name != nullptr ? Name : Member.Name);
    for (const char Type : Types)
        Write(From, Type, Member, Call.get());
    std::uint64_t Cookie = 0;                            // without one it would want no answer
    sd_bus_send(With.Link->Bus(), Call.get(), &Cookie);  // an end that is closed takes nothing
}

// To one that waits; or in advance, if the number is that of one to come.
void AnswerReport(Script& From, Conversation& With) {
    const unsigned Choice = From.Byte() % 8U;
    Message Report = Choice < 4 ? With.Link->TakeCall() : nullptr;
    if (!Report) {
        Report = With.New(Wire::SinkPath, Wire::EventInterface, "MsgBoxOb");
        sd_bus_message_seal(Report.get(), 1U + From.Byte() % 64U, 0);
    }
    const sd_bus_error Refusal{Wire::Failed, nullptr, 0};
    if (Choice % 4 == 0) sd_bus_reply_method_error(Report.get(), &Refusal);
    if (Choice % 4 > 1) sd_bus_reply_method_return(Report.get(), "");
}

void SayBytes(Script& From, Conversation& With) {
    With.Say(From.Taken(From.Byte()));
}

void PassTime(Script& From, Conversation& With) {
    With.Pass(From.Byte() * 10);
}

}  // namespace

void HearMessages(Bytes Input) {
    constexpr std::array Steps{MakeCall,     MakeCall, MakeCall, MakeCall,
                               AnswerReport, SayBytes, PassTime, PassTime};
    Script From(Input);
    const bool Raw = From.Byte() == 1;
    Conversation With(Raw);
    if (Raw) With.Say(From.Taken(Input.size()));
    for (int Step = 0; Step < MostSteps && !From.AtEnd(); ++Step)
        Steps[From.Byte() % Steps.size()](From, With);
    With.HangUp();
}

}  // namespace Tolvar::Fuzz
