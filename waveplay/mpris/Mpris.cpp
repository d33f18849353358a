#include "waveplay/mpris/Mpris.h"

#include <unistd.h>

#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

constexpr std::int32_t ReverseTellMs = 1000;

// The bus tells whether it gave the name; without it the object is still there.
int OnName(sd_bus_message*, void*, sd_bus_error*) {
    return 0;
}

}  // namespace

std::string FileUrl(const std::string& Path) {
    constexpr std::string_view Hex = "0123456789ABCDEF";
    constexpr std::string_view Plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    std::error_code Ignored;
    std::string Url = "file://";
    for (const char Each : std::filesystem::absolute(Path, Ignored).lexically_normal().string()) {
        const auto Byte = static_cast<unsigned char>(Each);
        if (Plain.find(Each) != std::string_view::npos) {
            Url += Each;
        } else {
            Url += {'%', Hex[Byte >> 4U], Hex[Byte & 15U]};
        }
    }
    return Url;
}

Mpris::Mpris(Apartment& HomeOf, PlayerControl& PlayerOf, MprisFacts Facts,
             std::function<void()> OnQuit)
    : Home_(HomeOf),
      Player_(PlayerOf),
      Object_(PlayerOf, std::move(Facts), std::move(OnQuit)),
      EachSecond_(HomeOf, ReverseTellMs),
      Last_(Now()) {
    if (!Connect()) return;
    Player_.Listen([this](PlayerControl::Change What) { Changed(What); });
    EachSecond_.Bind([this] { Changed(PlayerControl::Change::Jump); });
    Home_.Watch({sd_event_get_fd(Events_.get())}, [this] { Serve(); });
    Tell();
}

Mpris::~Mpris() {
    if (Events_) Home_.Unwatch({sd_event_get_fd(Events_.get())});
    Home_.Disarm(Telling_);
}

// Nothing here waits for the bus, which may be there and not answer.
bool Mpris::Connect() {
    sd_bus* Opened = nullptr;
    sd_event* Made = nullptr;
    if (sd_bus_open_user(&Opened) < 0) return false;
    Bus_.reset(Opened);
    if (sd_event_new(&Made) < 0) return false;
    Events_.reset(Made);
    const std::string Name =
        std::string(MprisObject::RootInterface) + ".waveplay.instance" + std::to_string(getpid());
    const bool Ready =
        sd_bus_attach_event(Opened, Made, 0) >= 0 && Object_.AddTo(Opened) &&
        sd_bus_request_name_async(Opened, nullptr, Name.c_str(), 0, OnName, nullptr) >= 0;
    if (!Ready) Events_.reset();
    return Ready;
}

// Never from inside a command: it serves the next one.
void Mpris::Serve() {
    int Result = 1;
    while (Result > 0)
        Result = sd_event_run(Events_.get(), 0);
    if (Result < 0) Home_.Unwatch({sd_event_get_fd(Events_.get())});
}

void Mpris::Changed(PlayerControl::Change What) {
    if (What == PlayerControl::Change::Note) return;
    Jumped_ = Jumped_ || What == PlayerControl::Change::Jump;
    if (Telling_.Order != 0) return;
    Telling_ = Home_.Arm(Home_.Time().NowNs(), [this] {
        Telling_ = {};
        Tell();
    });
}

// A bus that takes no signal is found to be gone by Serve.
void Mpris::Tell() {
    TellChanges();
    if (std::exchange(Jumped_, false)) TellPosition();
    EachSecond_.Enabled(Player_.State() == Transport::Playing && Player_.Wave().Direction < 0);
    Serve();
}

void Mpris::TellChanges() {
    const Told Before = std::exchange(Last_, Now());
    std::string Status = "PlaybackStatus";
    std::string Loop = "LoopStatus";
    std::string Rate = "Rate";
    std::vector<char*> Names;
    if (Before.Status != Last_.Status) Names.push_back(Status.data());
    if (Before.Loop != Last_.Loop) Names.push_back(Loop.data());
    if (Before.Rate != Last_.Rate) Names.push_back(Rate.data());
    if (Names.empty()) return;
    Names.push_back(nullptr);
    sd_bus_emit_properties_changed_strv(Bus_.get(), MprisObject::Path, MprisObject::PlayerInterface,
                                        Names.data());
}

void Mpris::TellPosition() {
    try {
        sd_bus_emit_signal(Bus_.get(), MprisObject::Path, MprisObject::PlayerInterface, "Seeked",
                           "x", Object_.PositionUs());
    } catch (const RuntimeFailure&) {
        // A player that is gone is nowhere.
    }
}

Mpris::Told Mpris::Now() const {
    return {Object_.Status(), Player_.Wave().Loop, Player_.Rate()};
}

}  // namespace Tolvar
