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
    void Add(const CarrierFile& Owned) { All.push_back(&Owned); }
    void Remove(const CarrierFile& Owned) noexcept { std::erase(All, &Owned); }

    bool Any(const auto& Fits) const {
        return std::ranges::any_of(All, [&](const CarrierFile* Each) { return Fits(*Each); });
    }

  private:
    std::vector<const CarrierFile*> All;
};

/// Makes a carrier's file known to the others for as long as both live.
class Registration {
  public:
    Registration(CarrierFiles& ToAll, const CarrierFile& ToOwn) : All(ToAll), Owned(ToOwn) {
        All.Add(Owned);
    }
    ~Registration() { All.Remove(Owned); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

  private:
    CarrierFiles& All;
    const CarrierFile& Owned;
};

}  // namespace Tolvar
