// What the server does in its own process: store_bench. One table of ratios, each measured in
// turns with what it stands against.

#include <cstdio>
#include <exception>

#include "bench/Sections.h"

int main() {
    try {
        Tolvar::Bench::MeasureFill();
        Tolvar::Bench::MeasureStart();
        Tolvar::Bench::MeasureBlocks();
        Tolvar::Bench::MeasureHandOver();
        return 0;
    } catch (const std::exception& Failure) {
        std::fprintf(stderr, "%s\n", Failure.what());
        return 1;
    }
}
