#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "platform/DirectX7.h"

namespace Tolvar {

/// The hidden form "Dx7 EventFrm": passes a device notification on to the engine that holds it.
/// A callback while nobody is bound is lost.
class DxEventFrm final : public DirectXEvent {
  public:
    using Forward = std::function<void(std::int32_t EventId)>;

    void Bind(Forward Handler) { DxEventForward = std::move(Handler); }
    void DXCallback(std::int32_t EventId) override {
        if (DxEventForward) DxEventForward(EventId);
    }

  private:
    Forward DxEventForward;
};

}  // namespace Tolvar
