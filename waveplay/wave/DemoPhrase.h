#pragma once

#include "waveplay/wave/Pieces.h"

namespace Tolvar {

/// A short stereo phrase that the program makes up itself, in two work files.
class DemoPhrase {
  public:
    /// RuntimeFailure(File) when the files cannot be written; nothing is left behind then.
    DemoPhrase();

    const Wave& Phrase() const { return Whole_; }

  private:
    Wave Whole_;
};

}  // namespace Tolvar
