#include "waveplay/mpris/MprisObject.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include "host/dbus/wire/Message.h"
#include "platform/DirectX7.h"

namespace Tolvar {
namespace {

constexpr const char* Track = "/org/tolvar/waveplay/wave";

std::int64_t MicrosecondsOf(std::int64_t Frames, std::int32_t Hz) {
    return Frames * 1'000'000 / std::max(1, Hz);
}

MprisObject& At(void* Self) {
    return *static_cast<MprisObject*>(Self);
}

// What is thrown must not pass through the library that calls.
template <typename Step>
int Guarded(sd_bus_error* Error, Step Do) {
    try {
        return Do();
    } catch (const std::exception& Cause) {
        return sd_bus_error_set(Error, SD_BUS_ERROR_FAILED, WireText(Cause.what()).c_str());
    }
}

// The player keeps what it refuses as its note.
template <typename Step>
int Ordered(void* Self, sd_bus_error* Error, Step Do) {
    return Guarded(Error, [&] {
        PlayerControl& Player = At(Self).Player();
        Player.Say("");
        Do(Player);
        const PlayerNote& Note = Player.Note();
        if (!Note.IsFailure || Note.Text.empty()) return 0;
        return sd_bus_error_set(Error, SD_BUS_ERROR_FAILED, WireText(Note.Text).c_str());
    });
}

// Methods.

int Nothing(sd_bus_message* Call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(Call, "");
}

int Quit(sd_bus_message* Call, void* Self, sd_bus_error* Error) {
    return Guarded(Error, [&] {
        At(Self).Quit();
        return sd_bus_reply_method_return(Call, "");
    });
}

template <void (PlayerControl::*Member)()>
int Command(sd_bus_message* Call, void* Self, sd_bus_error* Error) {
    const int Result = Ordered(Self, Error, [](PlayerControl& Player) { (Player.*Member)(); });
    return Result < 0 ? Result : sd_bus_reply_method_return(Call, "");
}

// The next play begins at the edge, as it does behind every player's stop.
int Stop(sd_bus_message* Call, void* Self, sd_bus_error* Error) {
    const int Result = Ordered(Self, Error, [](PlayerControl& Player) {
        Player.Stop();
        if (Player.State() != Transport::Stopped) return;
        Player.SeekToFrame(Player.Wave().Direction < 0 ? Player.Wave().WaveNos : 0);
    });
    return Result < 0 ? Result : sd_bus_reply_method_return(Call, "");
}

int Seek(sd_bus_message* Call, void* Self, sd_bus_error* Error) {
    std::int64_t OffsetUs = 0;
    int Result = sd_bus_message_read(Call, "x", &OffsetUs);
    if (Result < 0) return Result;
    Result = Ordered(Self, Error, [&](PlayerControl& Player) {
        Player.SeekBy(static_cast<double>(OffsetUs) / 1e6);
    });
    return Result < 0 ? Result : sd_bus_reply_method_return(Call, "");
}

// One for another track, or outside of this one, comes too late and is not meant any more.
int SetPosition(sd_bus_message* Call, void* Self, sd_bus_error* Error) {
    const char* Of = nullptr;
    std::int64_t PositionUs = 0;
    int Result = sd_bus_message_read(Call, "ox", &Of, &PositionUs);
    if (Result < 0) return Result;
    if (TextOf(Of) == Track && PositionUs >= 0 && PositionUs <= At(Self).LengthUs()) {
        Result = Ordered(Self, Error, [&](PlayerControl& Player) {
            Player.SeekTo(static_cast<double>(PositionUs) / 1e6);
        });
    }
    return Result < 0 ? Result : sd_bus_reply_method_return(Call, "");
}

int OpenUri(sd_bus_message*, void*, sd_bus_error* Error) {
    return sd_bus_error_set(Error, SD_BUS_ERROR_NOT_SUPPORTED,
                            "the wave is the one that the program was started with");
}

// Properties.

using Reply = sd_bus_message*;

template <bool Value>
int Truth(sd_bus*, const char*, const char*, const char*, Reply To, void*, sd_bus_error*) {
    return sd_bus_message_append(To, "b", int{Value});
}

int Identity(sd_bus*, const char*, const char*, const char*, Reply To, void*, sd_bus_error*) {
    return sd_bus_message_append(To, "s", "waveplay");
}

int NoTexts(sd_bus*, const char*, const char*, const char*, Reply To, void*, sd_bus_error*) {
    return sd_bus_message_append(To, "as", 0);
}

int Volume(sd_bus*, const char*, const char*, const char*, Reply To, void*, sd_bus_error*) {
    return sd_bus_message_append(To, "d", 1.0);
}

int Status(sd_bus*, const char*, const char*, const char*, Reply To, void* Self, sd_bus_error*) {
    return sd_bus_message_append(To, "s", At(Self).Status());
}

int LoopStatus(sd_bus*, const char*, const char*, const char*, Reply To, void* Self,
               sd_bus_error*) {
    return sd_bus_message_append(To, "s", At(Self).Player().Wave().Loop ? "Track" : "None");
}

int SetLoopStatus(sd_bus*, const char*, const char*, const char*, Reply From, void* Self,
                  sd_bus_error* Error) {
    const char* Wanted = nullptr;
    const int Result = sd_bus_message_read(From, "s", &Wanted);
    if (Result < 0) return Result;
    const std::string_view Name = TextOf(Wanted);
    // A list of one track is that track.
    if (Name != "None" && Name != "Track" && Name != "Playlist") {
        return sd_bus_error_set(Error, SD_BUS_ERROR_INVALID_ARGS, "not None, Track or Playlist");
    }
    return Ordered(Self, Error, [&](PlayerControl& Player) { Player.SetLoop(Name != "None"); });
}

int Rate(sd_bus*, const char*, const char*, const char*, Reply To, void* Self, sd_bus_error*) {
    return sd_bus_message_append(To, "d", At(Self).Player().Rate());
}

int SetRate(sd_bus*, const char*, const char*, const char*, Reply From, void* Self,
            sd_bus_error* Error) {
    double Factor = 0;
    const int Result = sd_bus_message_read(From, "d", &Factor);
    if (Result < 0) return Result;
    if (!(Factor >= 0)) {
        return sd_bus_error_set(Error, SD_BUS_ERROR_INVALID_ARGS, "not a rate of 0 or more");
    }
    return Ordered(Self, Error, [&](PlayerControl& Player) {
        Factor == 0 ? Player.Pause() : Player.SetRate(Factor);
    });
}

template <bool Most>
int RateBound(sd_bus*, const char*, const char*, const char*, Reply To, void* Self, sd_bus_error*) {
    const PlayerControl::Facts& Wave = At(Self).Player().Wave();
    const double Hz = Most ? DSBFREQUENCY_MAX : DSBFREQUENCY_MIN;
    const double Bound = Hz / Wave.FmtFriq;
    return sd_bus_message_append(To, "d", Wave.HasTempo ? Bound : 1.0);
}

int Position(sd_bus*, const char*, const char*, const char*, Reply To, void* Self,
             sd_bus_error* Error) {
    return Guarded(Error, [&] { return sd_bus_message_append(To, "x", At(Self).PositionUs()); });
}

int Metadata(sd_bus*, const char*, const char*, const char*, Reply To, void* Self,
             sd_bus_error* Error) {
    return Guarded(Error, [&] {
        const MprisFacts& Wave = At(Self).Wave();
        int Result = sd_bus_message_open_container(To, 'a', "{sv}");
        if (Result >= 0) {
            Result = sd_bus_message_append(To, "{sv}{sv}{sv}", "mpris:trackid", "o", Track,
                                           "mpris:length", "x", At(Self).LengthUs(), "xesam:title",
                                           "s", WireText(Wave.Title).c_str());
        }
        if (Result >= 0 && !Wave.Url.empty()) {
            Result = sd_bus_message_append(To, "{sv}", "xesam:url", "s", Wave.Url.c_str());
        }
        return Result < 0 ? Result : sd_bus_message_close_container(To);
    });
}

constexpr auto Open = SD_BUS_VTABLE_UNPRIVILEGED;
constexpr auto Fixed = SD_BUS_VTABLE_PROPERTY_CONST;
constexpr auto Telling = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;

const sd_bus_vtable RootMembers[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Raise", "", "", Nothing, Open),
    SD_BUS_METHOD("Quit", "", "", Quit, Open),
    SD_BUS_PROPERTY("CanQuit", "b", Truth<true>, 0, Fixed),
    SD_BUS_PROPERTY("CanRaise", "b", Truth<false>, 0, Fixed),
    SD_BUS_PROPERTY("HasTrackList", "b", Truth<false>, 0, Fixed),
    SD_BUS_PROPERTY("Identity", "s", Identity, 0, Fixed),
    SD_BUS_PROPERTY("SupportedUriSchemes", "as", NoTexts, 0, Fixed),
    SD_BUS_PROPERTY("SupportedMimeTypes", "as", NoTexts, 0, Fixed),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable PlayerMembers[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Next", "", "", Nothing, Open),
    SD_BUS_METHOD("Previous", "", "", Nothing, Open),
    SD_BUS_METHOD("Pause", "", "", Command<&PlayerControl::Pause>, Open),
    SD_BUS_METHOD("PlayPause", "", "", Command<&PlayerControl::PlayPause>, Open),
    SD_BUS_METHOD("Play", "", "", Command<&PlayerControl::Play>, Open),
    SD_BUS_METHOD("Stop", "", "", Stop, Open),
    SD_BUS_METHOD_WITH_ARGS("Seek", SD_BUS_ARGS("x", Offset), SD_BUS_NO_RESULT, Seek, Open),
    SD_BUS_METHOD_WITH_ARGS("SetPosition", SD_BUS_ARGS("o", TrackId, "x", Position),
                            SD_BUS_NO_RESULT, SetPosition, Open),
    SD_BUS_METHOD_WITH_ARGS("OpenUri", SD_BUS_ARGS("s", Uri), SD_BUS_NO_RESULT, OpenUri, Open),
    SD_BUS_SIGNAL_WITH_ARGS("Seeked", SD_BUS_ARGS("x", Position), 0),
    SD_BUS_PROPERTY("PlaybackStatus", "s", Status, 0, Telling),
    SD_BUS_WRITABLE_PROPERTY("LoopStatus", "s", LoopStatus, SetLoopStatus, 0, Telling),
    SD_BUS_WRITABLE_PROPERTY("Rate", "d", Rate, SetRate, 0, Telling),
    SD_BUS_PROPERTY("Metadata", "a{sv}", Metadata, 0, Telling),
    SD_BUS_PROPERTY("Volume", "d", Volume, 0, Telling),
    SD_BUS_PROPERTY("Position", "x", Position, 0, 0),
    SD_BUS_PROPERTY("MinimumRate", "d", RateBound<false>, 0, Telling),
    SD_BUS_PROPERTY("MaximumRate", "d", RateBound<true>, 0, Telling),
    SD_BUS_PROPERTY("CanGoNext", "b", Truth<false>, 0, Telling),
    SD_BUS_PROPERTY("CanGoPrevious", "b", Truth<false>, 0, Telling),
    SD_BUS_PROPERTY("CanPlay", "b", Truth<true>, 0, Telling),
    SD_BUS_PROPERTY("CanPause", "b", Truth<true>, 0, Telling),
    SD_BUS_PROPERTY("CanSeek", "b", Truth<true>, 0, Telling),
    SD_BUS_PROPERTY("CanControl", "b", Truth<true>, 0, Fixed),
    SD_BUS_VTABLE_END,
};

}  // namespace

MprisObject::MprisObject(PlayerControl& Player, MprisFacts FactsOf, std::function<void()> ToQuit)
    : Control_(Player), Facts_(std::move(FactsOf)), OnQuit_(std::move(ToQuit)) {}

bool MprisObject::AddTo(sd_bus* Bus) {
    return sd_bus_add_object_vtable(Bus, nullptr, Path, RootInterface, RootMembers, this) >= 0 &&
           sd_bus_add_object_vtable(Bus, nullptr, Path, PlayerInterface, PlayerMembers, this) >= 0;
}

const char* MprisObject::Status() const {
    if (Control_.State() == Transport::Playing) return "Playing";
    return Control_.State() == Transport::Paused ? "Paused" : "Stopped";
}

std::int64_t MprisObject::PositionUs() {
    Control_.Refresh();
    return MicrosecondsOf(Control_.Here(), Control_.Wave().FmtFriq);
}

std::int64_t MprisObject::LengthUs() const {
    return MicrosecondsOf(Control_.Wave().WaveNos, Control_.Wave().FmtFriq);
}

}  // namespace Tolvar
