#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// While it lives, the lines that this program and those that it starts write to standard error do
/// not reach it, so that they cannot spoil a picture on the same terminal. They are written there
/// when it ends; of very many only the last. One at a time in a program, one thread.
class HeldErrors {
  public:
    /// Without a pipe nothing is held.
    HeldErrors();
    ~HeldErrors();
    HeldErrors(const HeldErrors&) = delete;
    HeldErrors& operator=(const HeldErrors&) = delete;

    /// Readable when Take has something; -1 when nothing is held.
    int Fd() const { return Reading_.Get(); }

    /// The whole lines that have come since the last call, control characters made visible.
    std::vector<std::string> Take();

  private:
    void Keep(const std::string& Line);

    static constexpr std::size_t MostKept = 200;

    Descriptor Reading_;
    Descriptor Before_;        // standard error as it was
    std::string PartialLine_;  // a line without its end
    std::deque<std::string> Kept_;
    std::size_t Dropped_ = 0;
};

}  // namespace Tolvar
