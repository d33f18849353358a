#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace Tolvar {

/// The file in which a carrier keeps its samples.
struct CarrierFile {
    std::string Name;   ///< full path; "" = none
    bool Made = false;  ///< the carrier has made the file or taken it over; else it is only a name

    bool OnlyNamed() const { return !Made && !Name.empty(); }
};

/// The files of all carriers of a store, so that no two of them keep the same one.
class CarrierFiles {
  public:
    /// Owned stays where it is until it is removed.
    void Add(const CarrierFile& Owned) { All_.push_back(&Owned); }
    void Remove(const CarrierFile& Owned) noexcept { std::erase(All_, &Owned); }

    bool Any(const auto& Fits) const {
        return std::ranges::any_of(All_, [&](const CarrierFile* Each) { return Fits(*Each); });
    }

  private:
    std::vector<const CarrierFile*> All_;
};

/// Makes a carrier's file known to the others for as long as both live.
class Registration {
  public:
    Registration(CarrierFiles& ToAll, const CarrierFile& ToOwn) : All_(ToAll), Owned_(ToOwn) {
        All_.Add(Owned_);
    }
    ~Registration() { All_.Remove(Owned_); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

  private:
    CarrierFiles& All_;
    const CarrierFile& Owned_;
};

}  // namespace Tolvar
