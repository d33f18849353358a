#pragma once

#include <gmock/gmock.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <sndfile.hh>
#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {

using namespace testing;

using Samples = std::vector<std::int16_t>;

struct Outcome {
    int Code = -1;
    std::string Out;
    std::string Err;
};

/// The built program in a folder of its own, which goes with it.
class Program {
  public:
    using Cue = std::function<void(pid_t Process)>;

    /// Runs in the folder, and AtPlaying once the program says that it is playing. Returns when
    /// nobody can write to its standard error any more, its server included. Code is 128 + the
    /// signal's number when a signal ended it.
    Outcome Run(std::vector<std::string> Arguments, const std::string& Input = {},
                const Cue& AtPlaying = {}) const {
        Arguments.insert(Arguments.begin(), WAVEPLAY_PROGRAM);
        return RunLine(Arguments, Input, AtPlaying);
    }
    /// A shell's script; $0 is the program.
    Outcome RunShell(const std::string& Script) const {
        return RunLine({"sh", "-c", Script, WAVEPLAY_PROGRAM});
    }
    /// The same on a session bus of its own that starts servers that record to out.wav.
    Outcome RunOnBus(const std::string& Script) const;
    /// What `render` makes of these arguments; it must succeed.
    Samples Render(std::vector<std::string> Arguments) const;

    std::string Path(const std::string& Name) const { return Folder_ / Name; }
    std::vector<std::string> FilesThere() const { return Folder_.Names(); }

    /// Of 8-bit files only the high byte of each sample counts.
    void PutWav(const std::string& Name, int Bits, int Channels, int Rate,
                const Samples& Frames) const;
    /// Any format that libsndfile writes, from 16-bit samples or from those of full scale 1.
    template <typename Sample>
    void PutSound(const std::string& Name, int Format, int Channels, int Rate,
                  const std::vector<Sample>& Frames) const {
        SndfileHandle Sound(Path(Name), SFM_WRITE, Format, Channels, Rate);
        if (Sound.write(Frames.data(), std::ssize(Frames)) != std::ssize(Frames)) {
            throw std::runtime_error("cannot write " + Name);
        }
    }
    Samples GetSound(const std::string& Name) const;

  private:
    Outcome RunLine(std::vector<std::string> Words, const std::string& Input = {},
                    Cue AtPlaying = {}) const;

    TempFolder Folder_, Streams_;
};

/// The server process that Process has started.
pid_t ServerOf(pid_t Process);

/// A wave that tells loss, repeats, swapped channels and wrong order apart: each sample is its
/// own frame number, scrambled, and the channels differ.
Samples Numbered(int Frames, int Channels, int Bits = 16);

/// The frames from last to first.
Samples Mirrored(const Samples& Frames, int Channels);

Samples Joined(std::initializer_list<Samples> Parts);

}  // namespace Tolvar::Testing
