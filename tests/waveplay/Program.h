#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tolvar::Testing {

struct Outcome {
    int Code = -1;
    std::string Out;
    std::string Err;
};

/// The built program in a folder of its own, which goes with it.
class Program {
  public:
    Program();
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Runs in the folder; 128 + the signal's number when a signal ended it.
    Outcome Run(const std::vector<std::string>& Arguments, const std::string& Input = {}) const;
    /// Sends the signal once the program says that it is playing.
    Outcome RunAndSignal(const std::vector<std::string>& Arguments, int Signal) const;

    std::string Path(const std::string& Name) const { return Folder + "/" + Name; }
    std::vector<std::string> FilesThere() const;

    /// 8-bit samples are given as byte - 128.
    void PutWav(const std::string& Name, int Bits, int Channels, int Rate,
                const std::vector<std::int16_t>& Samples) const;
    void Put(const std::string& Name, const std::string& Bytes) const;
    std::string Get(const std::string& Name) const;

    struct Wav {
        int Channels = 0;
        int Rate = 0;
        int Format = 0;
        std::vector<std::int16_t> Samples;
    };
    Wav GetWav(const std::string& Name) const;

  private:
    int Start(const std::vector<std::string>& Arguments, const std::string& Input) const;
    Outcome Await(int Process) const;

    std::string Folder;
};

/// A wave that tells loss, repeats, swapped channels and wrong order apart: each sample is its
/// own frame number, scrambled, and the channels differ.
std::vector<std::int16_t> Numbered(int Frames, int Channels, int Bits = 16);

/// The frames from last to first.
std::vector<std::int16_t> Mirrored(const std::vector<std::int16_t>& Samples, int Channels);

}  // namespace Tolvar::Testing
