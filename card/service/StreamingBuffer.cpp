#include "card/service/StreamingBuffer.h"

#include <utility>

namespace Tolvar {

void StreamingBuffer::Play(bool Restart, std::int32_t FrequencyHz) {
    Sound_.PlayAt(FrequencyHz,
                  Restart ? LoopingVoice::StartAt::BufferStart : LoopingVoice::StartAt::Cursor);
    if (Restart) FirstTold_ = SecondTold_ = 0;
}

StreamingBuffer::Entered StreamingBuffer::TakeEntered() {
    if (!Sound_.IsPlaying()) return {};
    const std::int64_t Frames = Sound_.BufferFrames();
    const std::int64_t Heard = Sound_.FramesHeard();
    const std::int64_t Firsts = Heard / Frames + 1;
    const std::int64_t Seconds = (Heard + Frames - Frames / 2) / Frames;
    return {Firsts > std::exchange(FirstTold_, Firsts),
            Seconds > std::exchange(SecondTold_, Seconds)};
}

}  // namespace Tolvar
