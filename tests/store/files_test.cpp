#include <gmock/gmock.h>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
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
        const auto Len = static_cast<std::int32_t>(C.Samples.size());
        const std::int32_t Blk =
            S.HandOverOne({4, Len, 101, "wave", C.FilePos, C.Channels, C.Bits});
        EXPECT_EQ(S.Read(Blk, 101, 100 + Len), C.Samples) << C.Channels << "x" << C.Bits;
        EXPECT_EQ(S.Read(Blk, 102, 102)[0], C.Samples[1]);
        S.Store.BlockLoad(Blk);
        EXPECT_EQ(S.Read(Blk, 101, 100 + Len), C.Samples);
        EXPECT_EQ(S.Store.OrgFile(1).OrgUseCnt, 0);
        S.ExpectConsistent();
    }
}

TEST(OpenFiles, StayOpenBetweenReadsAndCloseOnEveryWayOut) {
    Shop S;
    S.Disk.Put16("a", Wave{1, 2});
    S.Disk.Put16("b", Wave{3, 4});
    const Blocks Set = S.HandOver({{4, 2, 1, "a"}, {4, 2, 3, "b"}, {3, 2, 5, "b"}});
    for (const std::int32_t Blk : {1, 1, 3, 3, 1}) {
        Wave Two(2);
        S.Store.BlockReadAt(Set[static_cast<std::size_t>(Blk)], 0, Two);
    }
    EXPECT_EQ(S.Disk.OpensSoFar, 2);
    S.Read(Set[2], 3, 4);
    EXPECT_EQ(S.Disk.OpensSoFar, 3);
    EXPECT_EQ(S.Store.OrgFileOpen(), 2);
    EXPECT_EQ(S.Store.WorkFileOpen(), 1);
    S.Store.OrgFileCloseNo(1);
    S.Store.WorkFileCloseNo(1);
    EXPECT_EQ(S.Disk.OpenNow, 1);
    EXPECT_THAT(S.Read(Set[3], 5, 6), ElementsAre(3, 4));
    S.Store.BlockFree(Set[2]);  // the last reader: closed and forgotten at once
    EXPECT_EQ(S.Store.OrgFileOpen(), 0);
    EXPECT_EQ(S.Store.OrgFile(2).OrgFileName, "");
    S.Store.BlockFree(Set[3]);  // a work file stays named and open until it is forgotten
    EXPECT_EQ(S.Store.WorkFile(1).WorkFileName, "b");
    S.Store.FilesForget();
    EXPECT_EQ(S.Store.WorkFile(1).WorkFileName, "");
    EXPECT_EQ(S.Disk.OpenNow, 0);
    EXPECT_EQ(S.Store.OrgFile(1).OrgFileName, "a");
}

TEST(OpenFiles, AFailureLeavesNoneOpenSoThatARepairIsSeen) {
    Shop S;
    const Blocks Set = S.HandOver({{4, 2, 1, "a"}, {3, 2, 3, "w"}, {4, 1, 5, "a", -3}});
    for (const std::int32_t I : {1, 2}) {
        const std::int32_t Blk = Set[static_cast<std::size_t>(I)];
        const std::string Name = I == 1 ? "a" : "w";
        EXPECT_THROW(S.Store.BlockLoad(Blk), RuntimeFailure);  // missing
        S.Disk.Put16(Name, Wave{5});
        EXPECT_THROW(S.Store.BlockLoad(Blk), RuntimeFailure);  // shortened
        S.ExpectConsistent();
        EXPECT_EQ(I == 1 ? S.Store.OrgFileOpen() : S.Store.WorkFileOpen(), 0);
        S.Disk.Put16(Name, Wave{5, 6});
        S.Store.BlockLoad(Blk);
        EXPECT_THAT(S.Read(Blk, 2 * I - 1, 2 * I), ElementsAre(5, 6));
    }
    try {
        S.Read(Set[3], 5, 5);
        ADD_FAILURE() << "read from before the file";
    } catch (const RuntimeFailure& Refused) {
        EXPECT_EQ(Refused.Kind(), FailureKind::File);
        EXPECT_THAT(Refused.what(), HasSubstr("-3"));
    }
}

TEST(Slots, FirstFreeOneIsReusedAndFirstInUseIsFoundWhateverItsCase) {
    Shop S;
    const Blocks Set = S.HandOver({{4, 1, 1, "C:\\A"},
                                   {4, 1, 2, "b"},
                                   {4, 1, 3, "c:\\a"},
                                   {4, 1, 4, "d"},
                                   {4, 1, 5, "\xC3\x84"},
                                   {4, 1, 6, "\xC3\xA4"}});
    EXPECT_EQ(S.Store.OrgFileCnt(), 5);  // only ASCII letters have a case
    EXPECT_EQ(S.Store.OrgFile(1).OrgUseCnt, 2);
    S.Store.BlockFree(Set[2]);
    S.Store.BlockFree(Set[4]);
    EXPECT_EQ(S.Store.OrgFileFind("B"), 0);
    EXPECT_EQ(S.Store.OrgFileAdd("e", 1, 8), 2);
    EXPECT_EQ(S.Store.OrgFileAdd("f", 2, 16), 2);  // free until a block uses it
    const std::int32_t Blk = S.HandOverOne({4, 1, 1, "C:\\a", 1, 2, 8});
    EXPECT_EQ(S.Store.Block(Blk).BlkFileNo, 1);
    EXPECT_EQ(S.Store.OrgFile(1).OrgBits, 16);  // keeps what it was registered with
    EXPECT_EQ(S.Store.OrgFileCnt(), 5);
}

TEST(Release, LoadsTheReadersAndForgetsTheFile) {
    Shop S;
    S.Disk.Put16("a", Wave{1, 2, 3, 4});
    const Blocks Set = S.HandOver({{4, 2, 1, "a"}, {5, 1, 3}, {4, 2, 4, "a", 5}});
    S.Store.OrgFileRelease(1);
    EXPECT_THAT(S.Types({Set[1], Set[2], Set[3]}), ElementsAre(BlkBuff, BlkSilent, BlkBuff));
    EXPECT_THAT(S.Read(Set[3], 4, 5), ElementsAre(3, 4));
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
        for (int I = 0; I < 3; ++I) {
            Store.BlockFree(Blk);
            if (I == 1) Store.FilesForget();
            EXPECT_EQ(Store.BlockNew(2, BlkFile), Blk);
        }
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

TEST(Failures, OfAnyFileCallLeaveTheTablesConsistentAndTheSamplesWhole) {
    const Wave Six{1, 2, 3, 4, 5, 6};
    bool Failed = true;
    for (int N = 1; Failed; ++N) {
        Shop S;
        S.Disk.Put16("a", Six);
        S.Disk.Put16("w", Six);
        S.State.MemorySizeToUse = 20;
        BlockCarrBuffClass Carrier(S.Store);
        std::vector<ListEntry> Entries;
        for (std::int32_t I = 0; I < 7; ++I) {
            Entries.push_back({I % 3 == 0 ? 5 : I % 3 + 2, 6, 1 + 6 * I, I % 3 == 1 ? "w" : "a"});
        }
        Carrier.BuffBlocksPutFresh(S.HandOver(Entries));
        Wave Model;
        for (std::int32_t I = 0; I < 7; ++I) {
            for (const std::int16_t Sample : Six)
                Model.push_back(I % 3 == 0 ? 0 : Sample);
        }
        S.Disk.FailAtCall = S.Disk.Calls + N;
        Failed = false;
        const auto Try = [&](const auto& Step) {
            try {
                Step();
            } catch (const RuntimeFailure&) {
                Failed = true;
            }
            S.ExpectConsistent();
        };
        for (std::int32_t Pos = 2; Pos <= 42; Pos += 6) {
            Try([&] {
                Carrier.WaveLR(Pos, static_cast<std::int16_t>(Pos));
                Model[static_cast<std::size_t>(Pos) - 1] = static_cast<std::int16_t>(Pos);
            });
        }
        const std::int32_t Before = S.BlocksInUse();
        Try([&] {
            Blocks Copy;
            Carrier.BuffBlocksGetCopy(Copy);
            for (std::size_t I = 1; I < Copy.size(); ++I)
                S.Store.BlockFree(Copy[I]);
        });
        Try([&] { S.Store.BlockFree(S.Store.BlockNew(3, BlkFile)); });
        Try([&] { S.Store.BlockFree(S.Store.BlockNew(3, BlkBuff)); });
        EXPECT_EQ(S.BlocksInUse(), Before);
        Try([&] {
            Carrier.ReDimSize(38);
            Model.resize(38);
        });
        EXPECT_EQ(Carrier.WaveINos(), static_cast<std::int32_t>(Model.size()));
        S.Disk.FailAtCall = 0;
        Wave Heard(Model.size());
        Carrier.QuickBuffGet(1, Heard);
        ASSERT_EQ(Heard, Model) << "after the failure of file call " << N;
        ASSERT_LT(N, 500);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
