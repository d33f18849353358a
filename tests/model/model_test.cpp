#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/model/Commands.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

class Model : public ::testing::TestWithParam<EngineOrder> {};

INSTANTIATE_TEST_SUITE_P(All, Model,
                         ::testing::Values(EngineOrder::Dx9, EngineOrder::Dx7,
                                           EngineOrder::WaveOut),
                         [](const auto& Info) { return std::string(NameOf(Info.param)); });

TEST_P(Model, ThePlayerDoesWhatTheModelDoes) {
    for (std::uint32_t Seed = 1; Seed <= MODEL_TRIALS; ++Seed) {
        std::string Difference;
        const Trial Tried = RandomTrial(GetParam(), Seed, 250, Difference);
        ASSERT_EQ(Difference, "") << "seed " << Seed << "\n" << Explained(Tried);
    }
}

/// What the console prints of the script in that folder.
std::string Printed(const std::string& Folder, EngineOrder Engine) {
    const std::string Line = "cd '" + Folder + "' && '" WAVEPLAY_PROGRAM "' script --engine " +
                             NameOf(Engine) + " script >printed 2>&1";
    EXPECT_EQ(std::system(Line.c_str()), 0);
    return Get(Folder + "/printed");
}

TEST_P(Model, AScriptReplaysWhatWasTried) {
    std::string Difference;
    const Trial Tried = RandomTrial(GetParam(), 7, 150, Difference);
    const TempFolder Folder;
    Tried.Write(Folder / ".");
    EXPECT_EQ(Printed(Folder / ".", GetParam()), Tried.Expected());
}

}  // namespace
}  // namespace Tolvar::Testing
