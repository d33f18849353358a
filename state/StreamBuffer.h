#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

namespace Tolvar {

/// The samples of the double buffer: elements 1..Count(), signed 16-bit. The storage stays where
/// it is until Renew, because a device may read a segment in place while the other is filled.
class StreamBuffer {
  public:
    bool Exists() const { return Storage_ != nullptr; }
    std::int32_t Count() const { return Elements_; }

    /// Makes it Count zeros, 0 or more. std::bad_alloc leaves it as it was. The pages come zeroed
    /// from the system, so an absurdly large buffer costs nothing until it is filled.
    void Renew(std::int32_t Count) {
        auto* Fresh = std::calloc(static_cast<std::size_t>(Count) + 1, sizeof(std::int16_t));
        if (Fresh == nullptr) throw std::bad_alloc();
        Storage_.reset(static_cast<std::int16_t*>(Fresh));
        Elements_ = Count;
    }

    /// The address of element Index, 1 <= Index <= Count() + 1 (the end); it must exist.
    std::int16_t* At(std::int32_t Index) { return Storage_.get() + Index; }

  private:
    struct FreeStorage {
        void operator()(std::int16_t* Samples) const { std::free(Samples); }
    };
    std::unique_ptr<std::int16_t, FreeStorage> Storage_;  // element 0 is never used
    std::int32_t Elements_ = 0;
};

}  // namespace Tolvar
