#include "host/dbus/DispatchInterface.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string_view>

#include "server/PlayDllClass.h"

namespace Tolvar {
namespace {

using Kind = DispatchMember::Kind;

const std::string NoAnswer = "no answer can be made";

template <void (PlayDllClass::*Command)()>
void RunCommand(PlayDllClass& Player, sd_bus_message*, sd_bus_message*) {
    (Player.*Command)();
}

std::int32_t TakeInt32(sd_bus_message* Call) {
    std::int32_t Value = 0;
    Taken(sd_bus_message_read_basic(Call, 'i', &Value));
    return Value;
}

template <void (PlayDllClass::*Command)(std::int32_t)>
void RunInt32(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message*) {
    (Player.*Command)(TakeInt32(Call));
}

// The wire has no 32-bit floating point.
template <void (PlayDllClass::*Let)(float)>
void LetFactor(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message*) {
    double Factor = 0;
    Taken(sd_bus_message_read_basic(Call, 'd', &Factor));
    if (std::isfinite(Factor) && std::abs(Factor) > double{FLT_MAX}) {
        throw WireError(Wire::InvalidArgs, "the factor is too large");
    }
    (Player.*Let)(static_cast<float>(Factor));
}

void LetLoop(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message*) {
    int On = 0;
    Taken(sd_bus_message_read_basic(Call, 'b', &On));
    Player.LoopPlayON(On != 0);
}

void LetFolder(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message*) {
    const char* Folder = nullptr;
    Taken(sd_bus_message_read_basic(Call, 's', &Folder));
    Player.AppTmpDir(Folder);
}

void RunDxObj(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message* Answer) {
    std::int32_t MFrmHwnd = TakeInt32(Call);
    Player.DxObj(MFrmHwnd);
    Sent(sd_bus_message_append_basic(Answer, 'i', &MFrmHwnd), NoAnswer);
}

template <typename Getter>
void GetInt32(sd_bus_message* Answer, Getter Get) {
    const std::int32_t Value = Get();
    Sent(sd_bus_message_append_basic(Answer, 'i', &Value), NoAnswer);
}

void GetPosition(PlayDllClass& Player, sd_bus_message*, sd_bus_message* Answer) {
    GetInt32(Answer, [&] { return Player.PlayCurrentPosition(); });
}

void GetRunState(PlayDllClass& Player, sd_bus_message*, sd_bus_message* Answer) {
    GetInt32(Answer, [&] { return Player.PlayRunningDx7State(); });
}

// Read in place: the list lives as long as the message.
BlockList TakeList(sd_bus_message* Call) {
    const void* First = nullptr;
    std::size_t Bytes = 0;
    Taken(sd_bus_message_read_array(Call, 'i', &First, &Bytes));
    return {static_cast<const std::int32_t*>(First), Bytes / sizeof(std::int32_t)};
}

void RunWriteWaveMemo(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message*) {
    const std::int32_t FmtBits = TakeInt32(Call);
    const std::int32_t FmtChannal = TakeInt32(Call);
    const std::int32_t FmtFriq = TakeInt32(Call);
    const std::int32_t WaveNos = TakeInt32(Call);
    const BlockList BlkInLstL = TakeList(Call);
    const BlockList BlkInLstR = TakeList(Call);
    Player.WriteWaveMemo(FmtBits, FmtChannal, FmtFriq, WaveNos, BlkInLstL, BlkInLstR);
}

using P = PlayDllClass;
constexpr const char* HandOverNames = "FmtBits FmtChannal FmtFriq WaveNos BlkInLstL BlkInLstR";

constexpr DispatchMember Members[] = {
    {"DxObj", Kind::Method, "i", "MFrmHwnd", "i", &RunDxObj},
    {"PlayCurrentPosition", Kind::Get, "", "", "i", &GetPosition},
    {"PlayAgain", Kind::Method, "", "", "", &RunCommand<&P::PlayAgain>},
    {"PlayAgainRev", Kind::Method, "", "", "", &RunCommand<&P::PlayAgainRev>},
    {"PlayRunningDx7State", Kind::Get, "", "", "i", &GetRunState},
    {"PlayUTurn", Kind::Method, "", "", "", &RunCommand<&P::PlayUTurn>},
    {"StopPlay", Kind::Method, "", "", "", &RunCommand<&P::StopPlay>},
    {"PlayContinue", Kind::Method, "", "", "", &RunCommand<&P::PlayContinue>},
    {"UpdatePlayPosition", Kind::Method, "", "", "", &RunCommand<&P::UpdatePlayPosition>},
    {"PlayPause", Kind::Method, "", "", "", &RunCommand<&P::PlayPause>},
    {"WriteWaveMemo", Kind::Method, "iiiiaiai", HandOverNames, "", &RunWriteWaveMemo},
    {"MemorySizeToUse", Kind::Let, "i", "", "", &RunInt32<&P::MemorySizeToUse>},
    {"LoopPlayON", Kind::Let, "b", "", "", &LetLoop},
    {"PlayTempoFor", Kind::Let, "d", "", "", &LetFactor<&P::PlayTempoFor>},
    {"PlayTempoRev", Kind::Let, "d", "", "", &LetFactor<&P::PlayTempoRev>},
    {"AppTmpDir", Kind::Let, "s", "", "", &LetFolder},
    {"ReleaseFiles", Kind::Method, "", "", "", &RunCommand<&P::ReleaseFiles>},
    {"PlayAtPos", Kind::Method, "i", "Pos", "", &RunInt32<&P::PlayAtPos>},
    {"PlayAtPosRev", Kind::Method, "i", "Pos", "", &RunInt32<&P::PlayAtPosRev>},
};

const DispatchMember* Find(std::string_view Name) {
    const auto* Found = std::ranges::find(Members, Name, &DispatchMember::Name);
    return Found == std::end(Members) ? nullptr : Found;
}

Message NewAnswer(sd_bus_message* Call) {
    sd_bus_message* Made = nullptr;
    Sent(sd_bus_message_new_method_return(Call, &Made), NoAnswer);
    return Message(Made);
}

Message RunMethod(PlayDllClass& Player, sd_bus_message* Call) {
    const std::string Name(TextOf(sd_bus_message_get_member(Call)));
    const DispatchMember* Member = Find(Name);
    if (Member == nullptr || Member->Is != Kind::Method) {
        throw WireError(Wire::UnknownMethod, "there is no method " + Name);
    }
    RequireSignature(Call, Member->In);
    Message Answer = NewAnswer(Call);
    Member->Run(Player, Call, Answer.get());
    return Answer;
}

// Properties.

void AppendValue(PlayDllClass& Player, const DispatchMember& Member, sd_bus_message* Answer) {
    Sent(sd_bus_message_open_container(Answer, 'v', Member.Out), NoAnswer);
    Member.Run(Player, nullptr, Answer);
    Sent(sd_bus_message_close_container(Answer), NoAnswer);
}

void RequirePlayerInterface(std::string_view Interface) {
    if (Interface.empty() || Interface == Wire::PlayerInterface) return;
    throw WireError(Wire::UnknownInterface,
                    "there is no interface " + std::string(Interface) + " with properties");
}

const DispatchMember& TakeProperty(sd_bus_message* Call) {
    const char* Interface = nullptr;
    const char* Name = nullptr;
    Taken(sd_bus_message_read(Call, "ss", &Interface, &Name));
    RequirePlayerInterface(Interface);
    const DispatchMember* Member = Find(Name);
    if (Member == nullptr || Member->Is == Kind::Method) {
        throw WireError(Wire::UnknownProperty, "there is no property " + std::string(Name));
    }
    return *Member;
}

Message GetProperty(PlayDllClass& Player, sd_bus_message* Call) {
    RequireSignature(Call, "ss");
    const DispatchMember& Member = TakeProperty(Call);
    if (Member.Is == Kind::Let) {
        throw WireError(Wire::AccessDenied, std::string(Member.Name) + " can only be set");
    }
    Message Answer = NewAnswer(Call);
    AppendValue(Player, Member, Answer.get());
    return Answer;
}

Message SetProperty(PlayDllClass& Player, sd_bus_message* Call) {
    RequireSignature(Call, "ssv");
    const DispatchMember& Member = TakeProperty(Call);
    if (Member.Is == Kind::Get) {
        throw WireError(Wire::ReadOnly, std::string(Member.Name) + " can only be read");
    }
    const char* Given = nullptr;
    Taken(sd_bus_message_peek_type(Call, nullptr, &Given));
    if (TextOf(Given) != Member.In) {
        throw WireError(Wire::InvalidArgs, std::string(Member.Name) + " is of type " + Member.In +
                                               ", not " + std::string(TextOf(Given)));
    }
    Taken(sd_bus_message_enter_container(Call, 'v', Member.In));
    Message Answer = NewAnswer(Call);
    Member.Run(Player, Call, nullptr);
    return Answer;
}

Message GetAllProperties(PlayDllClass& Player, sd_bus_message* Call) {
    RequireSignature(Call, "s");
    const char* Interface = nullptr;
    Taken(sd_bus_message_read(Call, "s", &Interface));
    RequirePlayerInterface(TextOf(Interface));
    Message Answer = NewAnswer(Call);
    Sent(sd_bus_message_open_container(Answer.get(), 'a', "{sv}"), NoAnswer);
    for (const DispatchMember& Member : Members) {
        if (Member.Is != Kind::Get) continue;
        Sent(sd_bus_message_open_container(Answer.get(), 'e', "sv"), NoAnswer);
        Sent(sd_bus_message_append_basic(Answer.get(), 's', Member.Name), NoAnswer);
        AppendValue(Player, Member, Answer.get());
        Sent(sd_bus_message_close_container(Answer.get()), NoAnswer);
    }
    Sent(sd_bus_message_close_container(Answer.get()), NoAnswer);
    return Answer;
}

}  // namespace

std::span<const DispatchMember> PlayDllClassMembers() {
    return Members;
}

bool OnlyLooks(sd_bus_message* Call) {
    const std::string_view Interface = TextOf(sd_bus_message_get_interface(Call));
    const std::string_view Name = TextOf(sd_bus_message_get_member(Call));
    return Interface == Wire::Introspectable ||
           (Interface == Wire::Properties && (Name == "Get" || Name == "GetAll"));
}

Message Dispatch(PlayDllClass& Player, sd_bus_message* Call) {
    const std::string Interface(TextOf(sd_bus_message_get_interface(Call)));
    const std::string_view Name = TextOf(sd_bus_message_get_member(Call));
    if (Interface.empty() || Interface == Wire::PlayerInterface) return RunMethod(Player, Call);
    if (Interface != Wire::Properties) {
        throw WireError(Wire::UnknownInterface, "there is no interface " + Interface);
    }
    if (Name == "Get") return GetProperty(Player, Call);
    if (Name == "Set") return SetProperty(Player, Call);
    if (Name == "GetAll") return GetAllProperties(Player, Call);
    throw WireError(Wire::UnknownMethod, "there is no method " + std::string(Name));
}

}  // namespace Tolvar
