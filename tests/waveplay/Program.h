#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {

using Samples = std::vector<std::int16_t>;

struct Outcome {
    int Code = -1;
    std::string Out;
    std::string Err;
};

struct Wav {
    int Channels = 0;
    int Rate = 0;
    int Format = 0;
    Samples Frames;
};

/// The built program in a folder of its own, which goes with it.
class Program {
  public:
    /// Runs in the folder and sends Signal, when there is one, once the program says that it is
    /// playing. Code is 128 + the signal's number when a signal ended it.
    Outcome Run(const std::vector<std::string>& Arguments, const std::string& Input = {},
                int Signal = 0) const;
    /// What `render` makes of these arguments; it must succeed.
    Wav Render(std::vector<std::string> Arguments) const;

    std::string Path(const std::string& Name) const { return Folder / Name; }
    std::vector<std::string> FilesThere() const;

    /// Of 8-bit files only the high byte of each sample counts.
    void PutWav(const std::string& Name, int Bits, int Channels, int Rate,
                const Samples& Frames) const;
    Wav GetWav(const std::string& Name) const;

  private:
    TempFolder Folder;
};

/// A wave that tells loss, repeats, swapped channels and wrong order apart: each sample is its
/// own frame number, scrambled, and the channels differ.
Samples Numbered(int Frames, int Channels, int Bits = 16);

/// The frames from last to first.
Samples Mirrored(const Samples& Frames, int Channels);

}  // namespace Tolvar::Testing
