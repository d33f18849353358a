#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace Tolvar::Bench {

/// Medians of two works; times in nanoseconds.
struct Comparison {
    double Ours;
    double Theirs;
    double Ratio;     ///< median of Ours / Theirs of each turn
    double Quartile;  ///< of those ratios, one quarter are lower
    double Upper;     ///< and one quarter are higher
};

template <class Work>
double NsOf(Work&& Do) {
    const auto Start = std::chrono::steady_clock::now();
    Do();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - Start)
        .count();
}

/// Of Values, which it sorts; Share 0.5 is the median.
inline double Quantile(std::vector<double>& Values, double Share) {
    std::ranges::sort(Values);
    return Values[static_cast<std::size_t>(static_cast<double>(Values.size() - 1) * Share)];
}

/// Each work tells how many nanoseconds of it count. In turns, so that whatever else the machine
/// does meets both alike; the first turn, which warms the caches, is not counted.
template <class Our, class Their>
Comparison InTurns(int Turns, Our&& OurNs, Their&& TheirNs) {
    std::vector<double> Ours;
    std::vector<double> Theirs;
    std::vector<double> Ratios;
    for (int Turn = 0; Turn <= Turns; ++Turn) {
        const double One = OurNs();
        const double Other = TheirNs();
        if (Turn == 0) continue;
        Ours.push_back(One);
        Theirs.push_back(Other);
        Ratios.push_back(One / Other);
    }
    return {Quantile(Ours, 0.5), Quantile(Theirs, 0.5), Quantile(Ratios, 0.5),
            Quantile(Ratios, 0.25), Quantile(Ratios, 0.75)};
}

}  // namespace Tolvar::Bench
