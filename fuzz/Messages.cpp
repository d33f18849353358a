#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "fuzz/Targets.h"
#include "fuzz/WireBytes.h"
#include "host/DispatchInterface.h"
#include "host/Host.h"

namespace Tolvar::Fuzz {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view Greeting = "\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"sv;
constexpr int MostSteps = 64;

class Script {
  public:
    explicit Script(Bytes Input) : Rest(Input) {}

    bool AtEnd() const { return Rest.empty(); }
    std::uint8_t Byte() {
        if (Rest.empty()) return 0;
        const std::uint8_t First = Rest.front();
        Rest = Rest.subspan(1);
        return First;
    }
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
    std::string Text(std::size_t Most = 7) {
        std::string Taken;
        for (std::size_t Left = Byte() % (Most + 1); Left > 0; --Left)
            Taken.push_back(static_cast<char>(Byte()));
        return Taken;
    }

  private:
    Bytes Rest;
};

void WriteList(Script& From, WireBytes& To) {
    WireBytes List;
    const unsigned Blocks = From.Byte() % 6U;
    List.Int(static_cast<std::int32_t>(Blocks));
    for (unsigned Block = 0; Block < Blocks; ++Block) {
        const bool Readable = From.Byte() % 2 == 0;
        std::string Name = Readable ? "/proc/self/exe" : From.Text();
        List.Int(static_cast<std::int32_t>(1 + (Name.size() + 3) / 4));
        List.Int(static_cast<std::int32_t>(Name.size()));
        List.Out += Name;
        List.Align(4);
        for (int Field = 0; Field < 6; ++Field)
            List.Int(From.Number());
    }
    if (From.Byte() % 8 == 0 && !List.Out.empty()) List.Out.resize(List.Out.size() / 8 * 4);
    To.Word(static_cast<std::uint32_t>(List.Out.size()));
    To.Out += List.Out;
}

// A rate whose buffer would take gigabytes is for the machine to refuse, not for this.
void WriteHandOver(Script& From, WireBytes& To) {
    To.Int(From.Byte() % 4 != 0 ? 16 : From.Number());
    To.Int(1 + From.Byte() % 3);
    To.Int(From.Int() % 12'000);
    To.Int(From.Number());
    WriteList(From, To);
    WriteList(From, To);
}

void WriteBasic(Script& From, char Type, WireBytes& To) {
    if (Type == 'i') return To.Int(From.Number());
    if (Type == 'b') return To.Word(From.Byte() % 3);
    if (Type == 's') return To.Text(From.Text());
    To.Double(From.Byte() % 4 == 0 ? From.Byte() / 16.0 : std::bit_cast<float>(From.Int()));
}

/// The conversation: a server, and its editor's end of the socket.
class Conversation {
  public:
    Conversation() {
        std::array<int, 2> Pair{};
        Demand(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, Pair.data()) == 0,
               "there is a socket pair");
        Editor = Descriptor(Pair[0]);
        Say(Greeting);
        Hosting = std::make_unique<Host>(
            Server, std::make_unique<BusLink>(Descriptor(Pair[1]), BusLink::Side::Server), false,
            0);  // no time for the sink, which answers later or not at all
    }

    void Say(std::string_view Bytes) {
        // More than the socket holds stays unsaid.
        [[maybe_unused]] const auto Sent =
            send(Editor.Get(), Bytes.data(), Bytes.size(), MSG_NOSIGNAL);
    }
    void Say(Heading Head, const WireBytes& Body = {}) {
        Head.Serial = ++Serial;
        Say(MessageOf(Head, Body.Out));
    }
    void Pass(int Ms) {
        if (!Hosting->Finished()) Hosting->TurnLater();
        // A wave of a few frames that goes round is filled anew a thousand times a second.
        Server.Home().AdvanceBy(std::min(Ms, LeftMs));
        LeftMs -= std::min(Ms, LeftMs);
        Check();
    }
    void HangUp() {
        Pass(0);
        Editor = Descriptor();
        Pass(1000);
        Demand(Hosting->Finished() && !Server.HasPlayer(), "an editor that has gone is let go");
    }

  private:
    void Check() const {
        const PlayerState& State = Server.State();
        Demand(State.FmtChannal >= 0 && State.FmtChannal <= 2, "channels are 1 or 2");
        Demand(State.FmtBits == 0 || State.FmtBits == 8 || State.FmtBits == 16, "bits are 8 or 16");
        Demand(State.PlayRunningState >= 0 && State.PlayRunningState <= 3, "a run state is known");
        Demand(State.PlayTempoFor == State.PlayTempoFor, "a tempo is a number");
        Demand(!Hosting->Finished() || !Server.HasPlayer(), "what has ended holds no player");
    }

    std::uint32_t Serial = 0;
    int LeftMs = 3000;
    Descriptor Editor;
    PlayServer Server{
        {.VirtualClock = true, .LogPath = "/dev/null", .OnBox = [](std::string_view) {}}};
    std::unique_ptr<Host> Hosting;
};

const DispatchMember& Pick(Script& From) {
    const auto Members = PlayDllClassMembers();
    return Members[From.Byte() % Members.size()];
}

void CallMember(Script& From, Conversation& With) {
    const DispatchMember& Member = Pick(From);
    WireBytes Body;
    const std::string_view Types = Member.Is == DispatchMember::Kind::Method ? Member.In : "";
    if (Types.size() > 1) {
        WriteHandOver(From, Body);
    } else if (!Types.empty()) {
        WriteBasic(From, Types.front(), Body);
    }
    With.Say({.Member = Member.Name, .Signature = Types}, Body);
}

void CallProperties(Script& From, Conversation& With) {
    const DispatchMember& Member = Pick(From);
    const unsigned Choice = From.Byte() % 4U;
    WireBytes Body;
    Body.Text(Wire::PlayerInterface);
    if (Choice < 3) Body.Text(Member.Name);
    if (Choice < 2) {
        const std::string_view Own =
            Member.Is == DispatchMember::Kind::Let && Choice == 0 ? Member.In : "i";
        Body.Signature(Own);
        WriteBasic(From, Own.front(), Body);
    }
    const std::array Members{"Set", "Set", "Get", "GetAll"};
    const std::array Signatures{"ssv", "ssv", "ss", "s"};
    With.Say(
        {.Interface = Wire::Properties, .Member = Members[Choice], .Signature = Signatures[Choice]},
        Body);
}

void CallHosting(Script& From, Conversation& With) {
    const unsigned Choice = From.Byte() % 8U;
    WireBytes Sink;
    Sink.Text("/sink");
    if (Choice == 0) return With.Say({.Interface = Wire::HostingInterface, .Member = "Release"});
    if (Choice == 1) return With.Say({.Interface = Wire::Introspectable, .Member = "Introspect"});
    With.Say({.Interface = Wire::HostingInterface, .Member = "Advise", .Signature = "o"}, Sink);
}

// To a report, if the number is the one of a report.
void AnswerReport(Script& From, Conversation& With) {
    Heading Head{.Is = Heading::Kind::Answer, .Path = "", .Interface = ""};
    if (From.Byte() % 4 == 0) {
        Head.Is = Heading::Kind::Error;
        Head.ErrorName = Wire::Failed;
    }
    Head.AnswerTo = 1U + From.Byte() % 64U;
    With.Say(Head);
}

// Any head of a message with any body.
void SayOdd(Script& From, Conversation& With) {
    const std::string Path = From.Text(), Member = From.Text(), Types = From.Text();
    const WireBytes Body{From.Text(40)};
    With.Say({.Is = static_cast<Heading::Kind>(From.Byte() % 5U),
              .Path = From.Byte() % 2 == 0 ? Wire::PlayerPath : Path,
              .Interface = From.Byte() % 2 == 0 ? Wire::PlayerInterface : Wire::Properties,
              .Member = From.Byte() % 2 == 0 ? Pick(From).Name : Member,
              .Signature = Types},
             Body);
}

void SayBytes(Script& From, Conversation& With) {
    With.Say(From.Text(255));
}

void PassTime(Script& From, Conversation& With) {
    With.Pass(From.Byte() * 10);
}

}  // namespace

void HearMessages(Bytes Input) {
    constexpr std::array Steps{CallMember,   CallMember, CallProperties, CallHosting,
                               AnswerReport, SayOdd,     SayBytes,       PassTime};
    Script From(Input);
    Conversation With;
    for (int Step = 0; Step < MostSteps && !From.AtEnd(); ++Step)
        Steps[From.Byte() % Steps.size()](From, With);
    With.HangUp();
}

}  // namespace Tolvar::Fuzz
