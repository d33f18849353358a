#pragma once

#include "card/sinks/Sink.h"

namespace Tolvar {

/// No hardware: the card keeps time and renders nothing.
class NullSink : public Sink {
  public:
    bool WantsFrames() const override { return false; }
    void Open(int /*Channels*/, int /*RateHz*/) override {}
    void Write(std::span<const std::int16_t> /*Samples*/) override {}
    void Finish() override {}
};

}  // namespace Tolvar
