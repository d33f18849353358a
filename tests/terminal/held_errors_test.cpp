#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/TempFolder.h"
#include "waveplay/terminal/HeldErrors.h"

namespace Tolvar::Testing {
namespace {

// What reaches standard error while Do runs, and behind it.
template <typename Step>
std::string Written(Step Do) {
    const TempFolder Folder;
    std::fflush(stderr);
    const Descriptor Before(dup(STDERR_FILENO));
    const Descriptor File = OpenDescriptor(Folder / "err", O_RDWR | O_CREAT);
    dup2(File.Get(), STDERR_FILENO);
    Do([&] { return Get(Folder / "err"); });
    dup2(Before.Get(), STDERR_FILENO);
    return Get(Folder / "err");
}

TEST(HeldErrors, LinesOfAllProcessesWaitForTheEnd) {
    const std::string Said = Written([](const auto& SoFar) {
        HeldErrors Errors;
        EXPECT_EQ(std::system("echo from another >&2"), 0);
        std::fputs("one\x1b\nha", stderr);
        EXPECT_EQ(Errors.Take(), (std::vector<std::string>{"from another", "one\\x1b"}));
        std::fputs("lf\nthe rest", stderr);
        EXPECT_EQ(Errors.Take(), std::vector<std::string>{"half"});
        EXPECT_EQ(SoFar(), "");
    });
    EXPECT_EQ(Said, "from another\none\\x1b\nhalf\nthe rest\n");
}

TEST(HeldErrors, OfVeryManyTheLastAreKeptAndNobodyWaits) {
    const std::string Said = Written([](const auto&) {
        HeldErrors Errors;
        for (int Line = 1; Line <= 300; ++Line) {
            std::fprintf(stderr, "%d\n", Line);
            if (Line % 100 == 0) Errors.Take();
        }
        for (int Line = 0; Line < 100'000; ++Line)  // more than the pipe takes
            std::fputs("x", stderr);
    });
    EXPECT_TRUE(Said.starts_with("(101 lines dropped here)\n102\n")) << Said.substr(0, 60);
    EXPECT_TRUE(Said.ends_with("xxx\n"));
}

}  // namespace
}  // namespace Tolvar::Testing
