#include "platform/SondervalService2.h"

#include <exception>
#include <memory>
#include <string>

#include "card/service/StreamingBuffer.h"
#include "platform/Checked.h"

namespace {

using namespace Tolvar;

constexpr std::int32_t Done = 1;
constexpr std::int32_t Refused = 0;

/// Runs one entry point for the current server; no failure leaves it but as a line in the log.
template <typename Work>
std::int32_t Answer(const char* Name, Work Call) noexcept {
    ServiceHost* const Host = ServiceHost::Current();
    if (Host == nullptr) return Refused;
    try {
        return Call(*Host);
    } catch (const std::exception& Cause) {
        Host->Journal.Write(std::string(Name) + ": " + Cause.what());
        return Refused;
    }
}

StreamingBuffer* BufferOf(const ServiceHost& Host) {
    return static_cast<StreamingBuffer*>(Host.Held.get());
}

StreamingBuffer& NeededBuffer(const ServiceHost& Host) {
    RequireOfDevice(Host.Held != nullptr, "there is no buffer");
    return *BufferOf(Host);
}

std::int32_t Release(ServiceHost& Host) {
    Host.Held.reset();
    return Done;
}

}  // namespace

std::int32_t Service01(std::int32_t* Wraps, std::int32_t* Cursor) {
    return Answer("Service01", [&](ServiceHost& Host) {
        RequireOfDevice(Wraps != nullptr && Cursor != nullptr, "a variable is missing");
        if (Host.Held == nullptr) return Refused;
        LoopingVoice& Voice = BufferOf(Host)->Voice();
        const std::int64_t Heard = Voice.FramesHeard();
        const std::int64_t Frames = Voice.BufferFrames();
        const auto Passes = Checked<std::int32_t>(Heard / Frames);
        *Cursor = Checked<std::int32_t>(Heard % Frames * Voice.BytesPerFrame());
        *Wraps = Passes;
        return Done;
    });
}

std::int32_t Service02(std::int32_t /*Window*/, std::int32_t Channels, std::int32_t Rate,
                       std::int32_t Bits, std::int32_t Bytes) {
    return Answer("Service02", [&](ServiceHost& Host) {
        RequireOfDevice(Bits == 16, std::to_string(Bits) + " bits are not 16");
        Host.Held =
            std::make_unique<StreamingBuffer>(Host.Card, StreamFormat{Channels, Rate}, Bytes);
        return Done;
    });
}

std::int32_t Service03() {
    return Answer("Service03", Release);
}

std::int32_t Service04(std::int32_t Restart, std::int32_t Frequency) {
    return Answer("Service04", [&](ServiceHost& Host) {
        RequireOfDevice(Restart == 0 || Restart == 1,
                        "the restart flag " + std::to_string(Restart) + " is not 0 or 1");
        NeededBuffer(Host).Play(Restart == 1, Frequency);
        return Done;
    });
}

std::int32_t Service05() {
    return Answer("Service05", [](ServiceHost& Host) {
        NeededBuffer(Host).Voice().Stop();
        return Done;
    });
}

std::int32_t Service06(const std::int16_t* FirstSample, std::int32_t Bytes, std::int32_t Offset) {
    return Answer("Service06", [&](ServiceHost& Host) {
        NeededBuffer(Host).Voice().Write(Offset, Bytes, FirstSample);
        return Done;
    });
}

std::int32_t Service07() {
    return Answer("Service07", Release);
}

std::int32_t Service08(std::int32_t* Stopped, std::int32_t* RefillSecond, std::int32_t* RefillFirst,
                       std::int32_t* Spare) {
    return Answer("Service08", [&](ServiceHost& Host) {
        RequireOfDevice(Stopped != nullptr && RefillSecond != nullptr && RefillFirst != nullptr &&
                            Spare != nullptr,
                        "a variable is missing");
        StreamingBuffer* const Buffer = BufferOf(Host);
        const bool Plays = Buffer != nullptr && Buffer->Voice().IsPlaying();
        const auto Entered = Plays ? Buffer->TakeEntered() : StreamingBuffer::Entered{};
        *Stopped = Plays ? 0 : 1;
        *RefillSecond = Entered.First ? 1 : 0;
        *RefillFirst = Entered.Second ? 1 : 0;
        *Spare = 0;
        return Done;
    });
}
