#include <gtest/gtest.h>

#include <filesystem>

#include "fuzz/Targets.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

struct Target {
    const char* Corpus;
    void (*Try)(Fuzz::Bytes);
};

void PrintTo(const Target& Of, std::ostream* Out) {
    *Out << Of.Corpus;
}

class Corpus : public ::testing::TestWithParam<Target> {};

INSTANTIATE_TEST_SUITE_P(All, Corpus,
                         ::testing::Values(Target{"messages", Fuzz::HearMessages},
                                           Target{"block_lists", Fuzz::HandOverList},
                                           Target{"scripts", Fuzz::LookThroughScript},
                                           Target{"wav_headers", Fuzz::PlaceSound}),
                         [](const auto& Info) { return std::string(Info.param.Corpus); });

// Every seed whole, cut at every length and with every byte damaged. What does not hold ends the
// program, and so the test.
TEST_P(Corpus, WhatTheFuzzerBeginsWithHolds) {
    int Tried = 0;
    for (const auto& Each : std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPUS) /
                                                                GetParam().Corpus)) {
        const std::string Seed = Get(Each.path());
        std::vector<std::uint8_t> Bytes(Seed.begin(), Seed.end());
        GetParam().Try(Bytes);
        ++Tried;
        for (std::size_t At = 0; At < Bytes.size(); ++At) {
            GetParam().Try(Fuzz::Bytes(Bytes).first(At));
            Bytes[At] ^= 0x81U;
            GetParam().Try(Bytes);
            Bytes[At] ^= 0x81U;
        }
    }
    EXPECT_GT(Tried, 0);
}

}  // namespace
}  // namespace Tolvar::Testing
