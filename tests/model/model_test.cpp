#include "tests/model/Commands.h"
#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

INSTANTIATE_TEST_SUITE_P(Model, EachEngine, ::testing::ValuesIn(AllEngines), EngineName);

TEST_P(EachEngine, DoesWhatTheModelDoes) {
    for (std::uint32_t Seed = 1; Seed <= MODEL_TRIALS; ++Seed) {
        const Trial Tried = RandomTrial(GetParam(), Seed, 250);
        ASSERT_EQ(Tried.Difference(), "") << "seed " << Seed << "\n" << Explained(Tried);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
