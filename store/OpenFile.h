#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/Files.h"

namespace Tolvar {

/// The one file of a kind that is kept open between reads. After any failure none is open, so that
/// a file that has been repaired meanwhile is seen at the next read.
class OpenFile {
  public:
    /// 0 = none.
    std::int32_t Slot() const noexcept { return Slot_; }

    /// Opens the file for reading and closes the one before it; nothing when it is open already.
    void Open(Files& FileLayer, std::int32_t Slot, const std::string& Name) {
        if (Slot_ == Slot) return;
        Close();
        Handle_ = FileLayer.Open(Name, FileAccess::Read);
        Slot_ = Slot;
    }

    /// Nothing when another file, or none, is open.
    void CloseIf(std::int32_t Slot) noexcept {
        if (Slot == Slot_) Close();
    }

    void Close() noexcept {
        Handle_.reset();
        Slot_ = 0;
    }

    /// From the file that is open. BytePos is 1-based, 64 bits wide: the end of a block may lie
    /// beyond what its record can count.
    void Read(std::int64_t BytePos, std::span<std::byte> Into) {
        try {
            Handle_->ReadAt(BytePos, Into);
        } catch (...) {
            Close();
            throw;
        }
    }

  private:
    std::int32_t Slot_ = 0;
    std::unique_ptr<File> Handle_;
};

}  // namespace Tolvar
