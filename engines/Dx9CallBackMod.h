#pragma once

#include <cstdint>

#include "platform/ServiceLibrary.h"
#include "platform/SondervalService2.h"

namespace Tolvar {

/// The audio service library's functions as the DirectSound 9 engine calls them. Each is looked up
/// when it is called: a missing library or entry point is a RuntimeFailure(Library) of that call.
class Dx9CallBackMod {
  public:
    explicit Dx9CallBackMod(ServiceLibrary& From) : Library_(From) {}

    std::int32_t Service01(std::int32_t& Wraps, std::int32_t& Cursor) {
        return Look<decltype(&::Service01)>("Service01")(&Wraps, &Cursor);
    }
    std::int32_t Service02(std::int32_t Window, std::int32_t Channels, std::int32_t Rate,
                           std::int32_t Bits, std::int32_t Bytes) {
        return Look<decltype(&::Service02)>("Service02")(Window, Channels, Rate, Bits, Bytes);
    }
    std::int32_t Service03() { return Look<decltype(&::Service03)>("Service03")(); }
    std::int32_t Service04(std::int32_t Restart, std::int32_t Frequency) {
        return Look<decltype(&::Service04)>("Service04")(Restart, Frequency);
    }
    std::int32_t Service05() { return Look<decltype(&::Service05)>("Service05")(); }
    std::int32_t Service06(const std::int16_t* FirstSample, std::int32_t Bytes,
                           std::int32_t Offset) {
        return Look<decltype(&::Service06)>("Service06")(FirstSample, Bytes, Offset);
    }
    std::int32_t Service07() { return Look<decltype(&::Service07)>("Service07")(); }
    std::int32_t Service08(std::int32_t& Stopped, std::int32_t& RefillSecond,
                           std::int32_t& RefillFirst, std::int32_t& Spare) {
        return Look<decltype(&::Service08)>("Service08")(&Stopped, &RefillSecond, &RefillFirst,
                                                         &Spare);
    }

  private:
    template <typename Function>
    Function Look(const char* Name) {
        return reinterpret_cast<Function>(Library_.Entry(Name));
    }

    ServiceLibrary& Library_;
};

}  // namespace Tolvar
