#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/posix/Posix.h"
#include "waveplay/files/LastWill.h"

namespace Tolvar {

/// A folder of the program's own in the temporary folder, for work files. It goes with everything
/// in it when the object does, and when SIGINT, SIGTERM or SIGHUP end the program. A killed
/// program leaves it behind; the next one finds that nobody holds its lock and removes it.
/// One at a time in a program. Failures are RuntimeFailure(File).
class WorkFolder {
  public:
    WorkFolder();
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    /// A full path in the folder that was not given before. Nothing is made there yet.
    std::string NextFile();

  private:
    bool Make(const std::string& Parent);
    void Remove() noexcept;
    static void RemoveLive() noexcept;

    std::string Path_;
    Descriptor Lock_;  // of the folder itself, held as long as it lives
    std::atomic<int> Files_ = 0;
    std::optional<LastWill> Will_;
};

/// A work file in the making: raw 16-bit samples of one channel.
class WorkFileWriter {
  public:
    /// Room for Frames is claimed at once, where the file system can, so that a full disk shows
    /// before the work and not behind it. Source is what failures call the sound's origin.
    WorkFileWriter(const std::string& Path, std::int64_t Frames, const std::string& Source);

    void Append(std::span<const std::int16_t> Samples);

    /// What was appended is all of it. Once.
    void Finish();

    const std::string& Path() const { return Path_; }

  private:
    std::string Path_;
    std::string Name_;  // in texts
    Descriptor Out_;
    std::int64_t Bytes_ = 0;
};

}  // namespace Tolvar
