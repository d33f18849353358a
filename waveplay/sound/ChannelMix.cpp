#include "waveplay/sound/ChannelMix.h"

#include <array>
#include <cmath>
#include <numbers>
#include <numeric>
#include <string_view>

namespace Tolvar {
namespace {

// What stands where in a frame: front Left and Right, Centre, Bass, and what is behind, left,
// right or in the middle.
constexpr std::array<std::string_view, 9> Layouts{"",      "C",      "LR",      "LRC",     "LRlr",
                                                  "LRClr", "LRCBlr", "LRCBclr", "LRCBlrlr"};

double Share(char Place, bool Right) {
    constexpr double MinusThreeDb = 1 / std::numbers::sqrt2;
    switch (Place) {
        case 'L':
            return Right ? 0 : 1;
        case 'R':
            return Right ? 1 : 0;
        case 'l':
            return Right ? 0 : MinusThreeDb;
        case 'r':
            return Right ? MinusThreeDb : 0;
        case 'C':
            return MinusThreeDb;
        case 'c':
            return 0.5;
        default:
            return 0;
    }
}

// One output channel's weights, which add up to 1.
std::vector<double> Row(std::size_t From, bool Right) {
    const std::string_view Layout = From < Layouts.size() ? Layouts[From] : Layouts[2];
    std::vector<double> Weights(From);
    for (std::size_t Index = 0; Index < Layout.size(); ++Index)
        Weights[Index] = Share(Layout[Index], Right);
    const double Sum = std::accumulate(Weights.begin(), Weights.end(), 0.0);
    for (double& Each : Weights)
        Each /= Sum;
    return Weights;
}

std::vector<double> Matrix(std::size_t From, std::size_t To) {
    std::vector<double> Left = Row(From, false);
    const std::vector<double> Right = Row(From, true);
    if (To == 2) {
        Left.insert(Left.end(), Right.begin(), Right.end());
    } else {
        for (std::size_t Index = 0; Index < From; ++Index)
            Left[Index] = (Left[Index] + Right[Index]) / 2;
    }
    return Left;
}

}  // namespace

ChannelMix::ChannelMix(int From, int To)
    : From_(static_cast<std::size_t>(From)),
      To_(static_cast<std::size_t>(To)),
      Weights_(Matrix(From_, To_)) {}

std::span<const double> ChannelMix::Mix(std::span<const double> Frames) {
    if (From_ == To_) return Frames;
    Mixed_.clear();
    for (; !Frames.empty(); Frames = Frames.subspan(From_)) {
        const auto Frame = Frames.first(From_);
        for (auto Own = Weights_.begin(); Own != Weights_.end(); Own += std::ssize(Frame))
            Mixed_.push_back(std::inner_product(Frame.begin(), Frame.end(), Own, 0.0));
    }
    return Mixed_;
}

}  // namespace Tolvar
