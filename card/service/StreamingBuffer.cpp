#include "card/service/StreamingBuffer.h"

#include <utility>

namespace Tolvar {

void StreamingBuffer::Play(bool Restart, std::int32_t FrequencyHz) {
    Sound.SetFrequency(FrequencyHz);
    if (!Restart) return Sound.Play();
    Sound.PlayFromStart();
    FirstTold = SecondTold = 0;
}

StreamingBuffer::Entered StreamingBuffer::TakeEntered() {
    if (!Sound.IsPlaying()) return {};
    const std::int64_t Frames = Sound.BufferFrames();
    const std::int64_t Heard = Sound.FramesHeard();
    const std::int64_t Firsts = Heard / Frames + 1;
    const std::int64_t Seconds = (Heard + Frames - Frames / 2) / Frames;
    return {Firsts > std::exchange(FirstTold, Firsts),
            Seconds > std::exchange(SecondTold, Seconds)};
}

}  // namespace Tolvar
