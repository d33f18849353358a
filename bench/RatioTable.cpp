#include "bench/RatioTable.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

namespace Tolvar::Bench {
namespace {

// Says nothing while they run: single times mean little, the tables compare them.
class MedianCollector : public benchmark::BenchmarkReporter {
  public:
    Medians Ran;

    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& Report) override {
        for (const Run& Each : Report) {
            if (Each.error_occurred) {
                std::fprintf(stderr, "%s: %s\n", Each.benchmark_name().c_str(),
                             Each.error_message.c_str());
            } else if (Each.aggregate_name == "median") {
                Ran[Each.run_name.function_name + "/" + Each.run_name.args] =
                    Each.real_accumulated_time * 1e9 / static_cast<double>(Each.iterations);
            }
        }
    }
};

}  // namespace

}  // namespace Tolvar::Bench

int main(int Count, char** Arguments) {
    benchmark::Initialize(&Count, Arguments);
    if (benchmark::ReportUnrecognizedArguments(Count, Arguments)) return 2;
    Tolvar::Bench::MedianCollector Collector;
    benchmark::RunSpecifiedBenchmarks(&Collector);
    Tolvar::Bench::PrintHandOver(Collector.Ran);
    Tolvar::Bench::PrintSegments(Collector.Ran);
    return Collector.Ran.empty() ? 1 : 0;
}
