#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Tolvar {

/// A line on standard error that tells how far a decoding is: from its second second on, at most
/// ten times a second, on a terminal only. The line is gone when the object is.
class DecodeProgress {
  public:
    DecodeProgress(const std::string& Path, std::int64_t Frames);
    ~DecodeProgress();
    DecodeProgress(const DecodeProgress&) = delete;
    DecodeProgress& operator=(const DecodeProgress&) = delete;

    void Reached(std::int64_t Frame);

  private:
    std::string Name_;
    std::int64_t Whole_;
    bool Wanted_;
    bool Shown_ = false;
    std::chrono::steady_clock::time_point Due_;
};

}  // namespace Tolvar
