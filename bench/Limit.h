#pragma once

#include <cstdio>
#include <string>

namespace Tolvar::Bench {

/// "1.23 (at most 1.5)", marked when it is more.
inline std::string AgainstLimit(double Value, double Limit) {
    char Text[80];
    std::snprintf(Text, sizeof Text, "%5.2f (at most %.3g)%s", Value, Limit,
                  Value > Limit ? "  MISSED" : "");
    return Text;
}

}  // namespace Tolvar::Bench
