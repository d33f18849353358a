#pragma once

#include <cstdio>
#include <string>

#include "bench/Turns.h"

namespace Tolvar::Bench {

/// "1.23 (at most 1.5)", marked when it is more.
inline std::string AgainstLimit(double Value, double Limit) {
    char Text[80];
    std::snprintf(Text, sizeof Text, "%6.2f (at most %.3g)%s", Value, Limit,
                  Value > Limit ? "  MISSED" : "");
    return Text;
}

inline std::string TimeText(double Ns) {
    char Text[40];
    if (Ns < 1e4) {
        std::snprintf(Text, sizeof Text, "%.0f ns", Ns);
    } else if (Ns < 1e7) {
        std::snprintf(Text, sizeof Text, "%.1f us", Ns / 1e3);
    } else {
        std::snprintf(Text, sizeof Text, "%.1f ms", Ns / 1e6);
    }
    return Text;
}

inline void PrintHead(const char* Section) {
    std::printf("\n%-44s %11s  %-22s %11s  %-13s  %s\n", Section, "ours", "against", "theirs",
                "quartiles", "ratio");
}

/// One line of the table: the two times, the middle half of the ratios, their median. Limit 0 is
/// none.
inline void PrintRow(const std::string& What, const std::string& Against, const Comparison& Ran,
                     double Limit = 0) {
    char Spread[40];
    char Ratio[40];
    std::snprintf(Spread, sizeof Spread, "%.2f to %.2f", Ran.Quartile, Ran.Upper);
    std::snprintf(Ratio, sizeof Ratio, "%6.2f", Ran.Ratio);
    std::printf("%-44s %11s  %-22s %11s  %-13s %s\n", What.c_str(), TimeText(Ran.Ours).c_str(),
                Against.c_str(), TimeText(Ran.Theirs).c_str(), Spread,
                Limit > 0 ? AgainstLimit(Ran.Ratio, Limit).c_str() : Ratio);
    std::fflush(stdout);
}

}  // namespace Tolvar::Bench
