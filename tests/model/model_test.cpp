#include <cstdlib>

#include "tests/model/Commands.h"
#include "tests/support/Studio.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

INSTANTIATE_TEST_SUITE_P(Model, EachEngine, ::testing::ValuesIn(AllEngines), EngineName);

TEST_P(EachEngine, DoesWhatTheModelDoes) {
    for (std::uint32_t Seed = 1; Seed <= MODEL_TRIALS; ++Seed) {
        const Trial Tried = RandomTrial(GetParam(), Seed, 250);
        ASSERT_EQ(Tried.Difference(), "") << "seed " << Seed << "\n" << Explained(Tried);
    }
}

TEST_P(EachEngine, ReplaysInAScriptWhatWasTried) {
    const TempFolder Folder;
    RandomTrial(GetParam(), 7, 150).Write(Folder / ".");
    const std::string Line = "cd '" + Folder / "." +
                             "' && '" WAVEPLAY_PROGRAM "' script --engine " + NameOf(GetParam()) +
                             " script | diff expected - >&2";
    EXPECT_EQ(std::system(Line.c_str()), 0);
}

}  // namespace
}  // namespace Tolvar::Testing
