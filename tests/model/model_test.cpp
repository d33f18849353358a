#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "tests/model/Commands.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

constexpr std::array Engines{EngineOrder::Dx9, EngineOrder::Dx7, EngineOrder::WaveOut};

TEST(Model, ThePlayerDoesWhatTheModelDoes) {
    for (std::uint32_t Seed = 1; Seed <= 60; ++Seed) {
        for (const EngineOrder Engine : Engines) {
            std::string Difference;
            const Trial Tried = RandomTrial(Engine, Seed, 250, Difference);
            ASSERT_EQ(Difference, "") << NameOf(Engine) << ", seed " << Seed << "\n"
                                      << Explained(Tried);
        }
    }
}

/// What the console prints of the script in that folder.
std::string Printed(const std::string& Folder, EngineOrder Engine) {
    const std::string Line = "cd '" + Folder + "' && '" WAVEPLAY_PROGRAM "' script --engine " +
                             NameOf(Engine) + " script >printed 2>&1";
    EXPECT_EQ(std::system(Line.c_str()), 0);
    return Get(Folder + "/printed");
}

TEST(Model, AScriptReplaysWhatWasTried) {
    for (const EngineOrder Engine : Engines) {
        std::string Difference;
        const Trial Tried = RandomTrial(Engine, 7, 150, Difference);
        const TempFolder Folder;
        Tried.Write(Folder / ".");
        EXPECT_EQ(Printed(Folder / ".", Engine), Tried.Expected()) << NameOf(Engine);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
