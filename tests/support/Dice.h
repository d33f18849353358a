#pragma once

#include <cstdint>
#include <iterator>
#include <random>

namespace Tolvar::Testing {

/// Runs of it are the same everywhere.
class Dice {
  public:
    explicit Dice(std::uint32_t Seed) : Random_(Seed) {}

    std::int32_t Between(std::int64_t Least, std::int64_t Most) {
        return static_cast<std::int32_t>(Least +
                                         static_cast<std::int64_t>(Random_()) % (Most - Least + 1));
    }
    /// From 0 on.
    std::int32_t Below(std::int32_t Bound) { return Between(0, Bound - 1); }
    bool OneIn(int Count) { return Between(1, Count) == 1; }
    const auto& Of(const auto& Many) {
        return Many[static_cast<std::size_t>(Between(0, std::ssize(Many) - 1))];
    }

  private:
    std::mt19937 Random_;
};

}  // namespace Tolvar::Testing
