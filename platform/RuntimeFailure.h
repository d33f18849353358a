#pragma once

#include <stdexcept>
#include <string>

namespace Tolvar {

/// What went wrong, coarsely: the text says the rest.
enum class FailureKind {
    Overflow,  ///< a checked 32-bit result outside its range
    File,      ///< open, read, write or delete refused by the file system
    Device,    ///< a sound device or its driver refused
    Input,     ///< a value from the editor that breaks its own rules
    Memory,    ///< not enough memory for what was asked
    Library,   ///< a run-time library is missing or incomplete
};

/// A run-time failure of an operation. The text names the file, the position and what the
/// system said, so that it can be shown as it stands.
class RuntimeFailure : public std::runtime_error {
  public:
    RuntimeFailure(FailureKind Kind, const std::string& Text)
        : std::runtime_error(Text), Kind_(Kind) {}
    FailureKind Kind() const noexcept { return Kind_; }

  private:
    FailureKind Kind_;
};

/// RuntimeFailure(Device) with that text, unless it holds.
inline void RequireOfDevice(bool Holds, const std::string& Otherwise) {
    if (!Holds) throw RuntimeFailure(FailureKind::Device, Otherwise);
}

}  // namespace Tolvar
