#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

TEST(HandOver, MakesOneBlockAnEntryAndOpensNothing) {
    Shop S;
    EXPECT_THAT(S.HandOver({{4, 10, 1, "path\\a.wav", 45, 1, 8},
                            {3, 5, 11, "work"},
                            {5, 7, 16},
                            {4, 3, 23, "PATH\\a.wav", 55, 2, 16},
                            {7, 12, 3, "x"}}),
                ElementsAre(0, 1, 2, 3, 4, 5));
    EXPECT_THAT(S.Types({1, 2, 3, 4, 5}), ElementsAre(4, 3, 5, 4, 5));
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - Block type can not be converted to Block"));
    const BlockRec& Last = S.Store.Block(4);
    EXPECT_THAT((std::array{Last.BlkLen, Last.BlkStartPos, Last.BlkFilePos, Last.BlkFileNo}),
                ElementsAre(3, 23, 55, 1));
    EXPECT_EQ(S.Store.OrgFile(1).OrgFileName, "path\\a.wav");
    EXPECT_EQ(S.Store.OrgFile(1).OrgBits, 8);  // as it was registered first
    EXPECT_EQ(S.Disk.Calls, 0);
}

TEST(HandOver, RefusalsNameChannelEntryIndexAndValue) {
    const std::pair<std::vector<std::int32_t>, std::string> Cases[] = {
        {{}, "index 1"},
        {{0, 1, 0, 1, 5, 1, 1, 1, 16}, "index 1, value 0"},
        {{Max, 1, 0, 1, 5, 1, 1, 1, 16}, "entry 2, index 10"},
        {{1, Max, 0, 1, 5, 1, 1, 1, 16}, "entry 1, index 2, value 2147483647"},
        {{1, 2, 5, 0, 1, 5, 1, 1, 1, 16}, "entry 1, index 3, value 5"},
        {{1, 1, 0, 1, 5, 1, 1, 1}, "entry 1, index 9"},
        {{2, 1, 0, Max, 5, 1, 1, 1, 16, 1, 0, 1, 5, 1, 1, 1, 16}, "entry 2, index 12"},
    };
    for (const auto& [List, Where] : Cases) {
        EXPECT_THAT(FailureOf([&] { CheckedBlockList(List, "right"); }),
                    AllOf(HasSubstr("right"), HasSubstr(Where)));
    }
    EXPECT_NO_THROW(CheckedBlockList(std::array{1, 1, -9, 1, 5, 1, 1, 1, 16, 77}));
}

TEST(OpenFiles, StayOpenBetweenReadsAndCloseOnEveryWayOut) {
    Shop S;
    S.Disk.Put16("a", Wave{1, 2});
    S.Disk.Put16("b", Wave{3, 4});
    const Blocks Set = S.HandOver({{4, 2, 1, "a"}, {4, 2, 3, "b"}, {3, 2, 5, "b"}});
    for (const std::size_t I : {1U, 1U, 3U, 3U, 1U, 2U})
        S.Read(Set[I]);
    EXPECT_EQ(S.Disk.OpensSoFar, 3);
    S.Store.BlockFree(Set[2]);  // the last reader: closed and forgotten at once
    EXPECT_EQ(S.Store.OrgFile(2).OrgFileName, "");
    S.Store.BlockFree(Set[3]);  // a work file stays named and open until it is forgotten
    EXPECT_EQ(S.Store.WorkFile(1).WorkFileName, "b");
    S.ExpectConsistent();
    S.Store.FilesForget();
    EXPECT_EQ(S.Disk.OpenNow, 0);
}

TEST(Slots, FirstFreeOneIsReusedAndFirstInUseIsFoundWhateverItsCase) {
    Shop S;
    S.Disk.Put16("C:\\A", Wave{1, 2, 3, 4});
    const Blocks Set = S.HandOver({{4, 1, 1, "C:\\A"}, {4, 1, 2, "b"}, {4, 2, 3, "c:\\a", 5}});
    S.Store.BlockFree(Set[2]);
    EXPECT_EQ(S.Store.OrgFileFind("B"), 0);
    EXPECT_EQ(S.Store.OrgFileAdd("e", 1, 8), 2);  // free until a block uses it
    EXPECT_EQ(S.Store.OrgFileFind("C:\\a"), 1);
    S.Store.OrgFileRelease(1);  // its readers are loaded, then it is forgotten
    EXPECT_THAT(S.Types({Set[1], Set[3]}), ElementsAre(BlkBuff, BlkBuff));
    EXPECT_THAT(S.Read(Set[3]), ElementsAre(3, 4));
    EXPECT_EQ(S.Store.OrgFile(1).OrgFileName, "");
    S.ExpectConsistent();
}

TEST(OwnWorkFiles, AreNamedAroundExistingFilesReusedAndDeletedAtTheEnd) {
    MemoryFiles Disk;
    Disk.Put16("tmp\\wb1.tmp", Wave{42});  // somebody else's
    ListBox Box;
    StoreSettings Settings;
    {
        WoroFileBlockMod Store(Disk, Box, Settings);
        EXPECT_THROW(Store.BlockNew(1, BlkFile), RuntimeFailure);  // no folder yet
        Settings.AppTmpDir = "tmp";
        BlocksFromBlkInLst(Store,
                           CheckedBlockList(ListOf({{3, 1, 1, "TMP\\wb2.tmp"}})));  // the editor's
        const std::int32_t Blk = Store.BlockNew(2, BlkFile);
        EXPECT_EQ(Store.WorkFile(Store.Block(Blk).BlkFileNo).WorkFileName, "tmp\\wb3.tmp");
        Store.BlockFree(Blk);
        EXPECT_EQ(Store.BlockNew(2, BlkFile), Blk);
        Store.BlockFree(Blk);  // to be spare, but the editor hands it over
        Store.FilesForget();
        BlocksFromBlkInLst(Store, CheckedBlockList(ListOf({{3, 1, 1, "tmp\\wb3.tmp"}})));
        Store.BlockNew(2, BlkFile);
        EXPECT_THAT(Disk.Content, SizeIs(3));
    }
    EXPECT_THAT(Disk.Content, SizeIs(1));
    EXPECT_EQ(Disk.Content["tmp\\wb1.tmp"], (MemoryFiles::Bytes{42, 0}));
}

}  // namespace
}  // namespace Tolvar::Testing
