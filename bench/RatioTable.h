#pragma once

#include <map>
#include <string>

namespace Tolvar::Bench {

/// Median nanoseconds of every benchmark that ran, by its name.
using Medians = std::map<std::string, double>;

/// Each prints its table of what it finds in Ran; names that did not run are left out.
void PrintHandOver(const Medians& Ran);
void PrintSegments(const Medians& Ran);

}  // namespace Tolvar::Bench
