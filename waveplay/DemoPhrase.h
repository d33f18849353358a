#pragma once

#include <string>

#include "waveplay/Pieces.h"

namespace Tolvar {

/// A short stereo phrase that the program makes up itself, in two work files in a temporary
/// folder of their own. The destructor removes the files and the folder.
class DemoPhrase {
  public:
    /// RuntimeFailure(File) when the files cannot be written; nothing is left behind then.
    DemoPhrase();
    ~DemoPhrase();
    DemoPhrase(const DemoPhrase&) = delete;
    DemoPhrase& operator=(const DemoPhrase&) = delete;

    const Wave& Phrase() const { return Whole; }

  private:
    void Write();
    void Remove() noexcept;

    std::string Folder;
    Wave Whole;
};

}  // namespace Tolvar
