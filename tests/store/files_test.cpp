#include <gmock/gmock.h>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(Layouts, EachChannelComesOutOfItsOwnBytes) {
    struct Case {
        std::int32_t Channels, Bits, FilePos;
        Wave Samples;
    };
    // Byte 0 is a header; the file ends with the last frame's last byte.
    const MemoryFiles::Bytes Raw{55, 0, 128, 255, 200, 1, 2, 3, 0xFE};
    for (const Case& C : {Case{1, 8, 2, {-128, 0, 127, 72}},
                          {1, 8, 6, {-127, -126, -125, 126}},
                          {2, 8, 2, {-128, 127, -127, -125}},
                          {2, 8, 3, {0, 72, -126, 126}},
                          {1, 16, 2, {-32768, -14081, 513, -509}},
                          {2, 16, 2, {-32768, 513}},
                          {2, 16, 4, {-14081, -509}}}) {
        Shop S;
        S.Disk.Content["wave"] = Raw;
        const std::int32_t Blk =
            S.HandOverOne({4, Size(C.Samples), 101, "wave", C.FilePos, C.Channels, C.Bits});
        EXPECT_EQ(S.Read(Blk), C.Samples) << C.Channels << "x" << C.Bits;
        Wave Second(1);
        S.Store.BlockRead(Blk, 102, Second);
        EXPECT_EQ(Second[0], C.Samples[1]);
        S.Store.BlockLoad(Blk);
        EXPECT_EQ(S.Read(Blk), C.Samples);
        S.ExpectConsistent();
    }
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
    EXPECT_EQ(S.Store.OrgFileOpen(), 0);
    EXPECT_EQ(S.Store.OrgFile(2).OrgFileName, "");
    S.Store.BlockFree(Set[3]);  // a work file stays named and open until it is forgotten
    EXPECT_EQ(S.Store.WorkFileOpen(), 1);
    EXPECT_EQ(S.Store.WorkFile(1).WorkFileName, "b");
    S.Store.FilesForget();
    EXPECT_EQ(S.Store.WorkFile(1).WorkFileName, "");
    EXPECT_EQ(S.Disk.OpenNow, 0);
    EXPECT_EQ(S.Store.OrgFile(1).OrgFileName, "a");
}

TEST(Slots, FirstFreeOneIsReusedAndFirstInUseIsFoundWhateverItsCase) {
    Shop S;
    S.Disk.Put16("C:\\A", Wave{1, 2, 3, 4});
    const Blocks Set = S.HandOver({{4, 1, 1, "C:\\A"},
                                   {4, 1, 2, "b"},
                                   {4, 2, 3, "c:\\a", 5},
                                   {4, 1, 4, "\xC3\x84"},
                                   {4, 1, 5, "\xC3\xA4"}});
    EXPECT_EQ(S.Store.OrgFileCnt(), 4);  // only ASCII letters have a case
    S.Store.BlockFree(Set[2]);
    EXPECT_EQ(S.Store.OrgFileFind("B"), 0);
    EXPECT_EQ(S.Store.OrgFileAdd("e", 1, 8), 2);
    EXPECT_EQ(S.Store.OrgFileAdd("f", 2, 16), 2);  // free until a block uses it
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
    PlayerState State;
    {
        WoroFileBlockMod Store(Disk, Box, State);
        EXPECT_THROW(Store.BlockNew(1, BlkFile), RuntimeFailure);  // no folder yet
        State.AppTmpDir = "tmp";
        // The editor names a file that is not there: its name is the editor's all the same.
        BlocksFromBlkInLst(Store, ListOf({{3, 1, 1, "TMP\\wb2.tmp"}}));
        const std::int32_t Blk = Store.BlockNew(2, BlkFile);
        EXPECT_EQ(Store.WorkFile(Store.Block(Blk).BlkFileNo).WorkFileName, "tmp\\wb3.tmp");
        Store.BlockFree(Blk);
        EXPECT_EQ(Store.BlockNew(2, BlkFile), Blk);
        EXPECT_THAT(Disk.Content, SizeIs(2));
        // A spare file of the store's that the editor hands over is not written again.
        Store.BlockFree(Blk);
        Store.FilesForget();
        BlocksFromBlkInLst(Store, ListOf({{3, 1, 1, "tmp\\wb3.tmp"}}));
        Store.BlockNew(2, BlkFile);
        EXPECT_THAT(Disk.Content, SizeIs(3));
    }
    EXPECT_THAT(Disk.Content, SizeIs(1));
    EXPECT_EQ(Disk.Content["tmp\\wb1.tmp"], (MemoryFiles::Bytes{42, 0}));
}

}  // namespace
}  // namespace Tolvar::Testing
