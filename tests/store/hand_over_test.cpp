#include <gmock/gmock.h>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

const std::vector<ListEntry> Mixed{{4, 10, 1, "path\\a.wav", 45, 1, 8},
                                   {3, 5, 11, "work"},
                                   {5, 7, 16},
                                   {4, 3, 23, "PATH\\a.wav", 55, 2, 16}};

TEST(HandOver, MakesOneBlockAnEntryAndOpensNothing) {
    Shop S;
    EXPECT_THAT(S.HandOver(Mixed), ElementsAre(0, 1, 2, 3, 4));
    const std::int32_t Unknown = S.HandOverOne({7, 12, 3, "x"});
    EXPECT_THAT(S.Types({1, 2, 3, 4, Unknown}), ElementsAre(4, 3, 5, 4, 5));
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - Block type can not be converted to Block"));
    const BlockRec& Last = S.Store.Block(4);
    EXPECT_THAT((std::array{Last.BlkLen, Last.BlkStartPos, Last.BlkFilePos, Last.BlkFileNo}),
                ElementsAre(3, 23, 55, 1));
    EXPECT_EQ(S.Store.OrgFile(1).OrgFileName, "path\\a.wav");
    EXPECT_EQ(S.Store.OrgFile(1).OrgBits, 8);  // as it was registered first
    EXPECT_EQ(S.Disk.Calls, 0);
    S.ExpectConsistent();
}

TEST(HandOver, RefusalsNameChannelEntryIndexAndValue) {
    const std::pair<std::vector<std::int32_t>, std::string> Cases[] = {
        {{}, "index 1"},
        {{0, 1, 0, 1, 5, 1, 1, 1, 16}, "index 1, value 0"},
        {{-1}, "index 1, value -1"},
        {{Max, 1, 0, 1, 5, 1, 1, 1, 16}, "entry 2, index 10"},
        {{1, 0, 1, 5, 1, 1, 1, 16}, "entry 1, index 2, value 0"},
        {{1, Max, 0, 1, 5, 1, 1, 1, 16}, "entry 1, index 2, value 2147483647"},
        {{1, 1, 1, 1, 5, 1, 1, 1, 16}, "entry 1, index 3, value 1"},
        {{1, 2, 5, 0, 1, 5, 1, 1, 1, 16}, "entry 1, index 3, value 5"},
        {{1, 1, 0, 0, 5, 1, 1, 1, 16}, "entry 1, index 4, value 0"},
        {{1, 1, 0, 1, 5, 1, 1, 1}, "entry 1, index 9"},
        {{2, 1, 0, Max, 5, 1, 1, 1, 16, 1, 0, 1, 5, 1, 1, 1, 16}, "entry 2, index 12"},
    };
    for (const auto& [List, Where] : Cases) {
        EXPECT_THAT(FailureOf([&] { BlkInLstCheck(List, "right"); }),
                    AllOf(HasSubstr("right"), HasSubstr(Where)));
    }
    EXPECT_NO_THROW(BlkInLstCheck(std::array{1, 1, -9, 1, 5, 1, 1, 1, 16, 77}, ""));
}

}  // namespace
}  // namespace Tolvar::Testing
