#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "platform/RuntimeFailure.h"

namespace Tolvar {

/// What the system said (an errno value) as a failure; What names the operation, the file and the
/// position. Every errno of the system becomes a failure here.
RuntimeFailure ErrnoFailure(const std::string& What, int Error,
                            FailureKind Kind = FailureKind::File);

/// A write that took none of its bytes, which would be tried for ever; What as above.
RuntimeFailure NothingTaken(const std::string& What);

/// The one owner of a file descriptor; -1 owns none. Any thread, one at a time.
class Descriptor {
  public:
    explicit Descriptor(int Fd = -1) noexcept : Fd_(Fd) {}
    Descriptor(Descriptor&& From) noexcept : Fd_(std::exchange(From.Fd_, -1)) {}
    Descriptor& operator=(Descriptor&& From) noexcept {
        std::swap(Fd_, From.Fd_);
        return *this;
    }
    ~Descriptor() { Close(); }

    int Get() const noexcept { return Fd_; }
    explicit operator bool() const noexcept { return Fd_ >= 0; }

    /// 0, or the errno of data that could not be kept. The descriptor is gone in any case.
    int Close() noexcept;

  private:
    int Fd_;
};

/// open(2) with O_CLOEXEC, tried again when a signal came between. An unowned -1 and errno on
/// failure. Mode is what a file that it makes may be used for, less the process's umask.
Descriptor OpenDescriptor(const std::string& Path, int Flags, unsigned Mode = 0666) noexcept;

/// Writes From whole at the descriptor's own position; Name is the file in the failure's text.
void WriteWhole(const Descriptor& To, std::span<const std::byte> From, const std::string& Name);

}  // namespace Tolvar
