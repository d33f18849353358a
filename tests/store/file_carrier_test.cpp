#include <gmock/gmock.h>

#include <filesystem>
#include <functional>

#include "platform/PosixFiles.h"
#include "tests/store/FileShop.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(FileCarrier, StartsWithOneSampleInAFileNamedAfterTheTimeOfDayAndDeletesIt) {
    Shop S;
    const VirtualClock Noon;
    S.State.MemorySizeToUse = 20 * 262148 - 11;
    S.Disk.Put16("tmp\\tm43201.tmp", Wave{42});  // somebody else's
    {
        FileCarrBuffClass First(S.Store, Noon);
        S.State.MemorySizeToUse = 20 * 262148 - 10;  // rounded to a whole sample, then to a four
        FileCarrBuffClass Second(S.Store, Noon);
        EXPECT_EQ(First.FileName1(), "tmp\\tm43202.tmp");
        EXPECT_EQ(Second.FileName1(), "tmp\\tm43203.tmp");
        EXPECT_EQ(S.Disk.Content["tmp\\tm43203.tmp"], MemoryFiles::Bytes(2));
        EXPECT_EQ(First.BuffLength(), 262144);
        EXPECT_EQ(Second.BuffLength(), 262148);
        EXPECT_EQ(First.WaveSize(), 1);
        S.State.AppTmpDir = "";
        EXPECT_THROW(FileCarrBuffClass(S.Store, Noon), RuntimeFailure);
        EXPECT_THROW(First.FileRelease(), RuntimeFailure);
        EXPECT_EQ(First.FileName1(), "tmp\\tm43202.tmp");
    }
    EXPECT_THAT(S.Disk.Content, SizeIs(1));
}

TEST(FileCarrier, AnswersWhatIsOutsideInTheMessageBoxAndGoesOn) {
    FileShop S;
    S.Adopt({5, 6, 7});
    S.Carrier.BuffLength(2);
    S.Carrier.WaveLR(0, 11);
    const int Calls = S.Disk.Calls;
    EXPECT_EQ(S.Carrier.WaveLR(0), 11);
    S.Carrier.WaveLR(4, 1);
    EXPECT_EQ(S.Carrier.WaveLR(-1) + S.Carrier.WaveLR(4), 0);
    Wave Buf(3, 9);
    S.Carrier.BuffGet(1, Buf);  // longer than the buffer
    S.Carrier.BuffGet(3, std::span(Buf).first(2));
    S.Carrier.BuffGet(0, std::span(Buf).first(1));
    EXPECT_THAT(S.Box.Texts, testing::Each("Out of limit - Error"));
    EXPECT_THAT(S.Box.Texts, SizeIs(6));
    S.Carrier.BuffPut(-3, Wave{1});
    S.Carrier.BuffPut(1, Wave{1, 2, 3});
    EXPECT_THAT(std::span(S.Box.Texts).last(2),
                ElementsAre("Out of limit - Error\r\n 1 2-3", "Out of limit - Error\r\n 3 2 1"));
    S.Carrier.BuffPut(-3, {});
    S.Carrier.BuffGet(4, {});
    EXPECT_THAT(S.Box.Texts, SizeIs(8));
    S.Carrier.BuffGet(Max, Buf);
    S.Carrier.BuffPut(Max, Buf);
    EXPECT_THAT(S.Box.Texts, SizeIs(10)) << "longer than the buffer, whatever its end";
    EXPECT_EQ(Buf, Wave(3, 9));
    EXPECT_EQ(S.Disk.Calls, Calls);
    EXPECT_EQ(S.All(), (Wave{5, 6, 7}));
}

TEST(FileCarrier, RefusesWhatCannotBeAndKeepsWhatItHas) {
    FileShop S;
    S.Adopt({5, 6});
    S.Carrier.WaveLR(2, 8);
    Wave Buf(2);
    const std::vector<std::function<void()>> Refused{
        [&] { S.Carrier.ReDimSize(-1); },         [&] { S.Carrier.WaveSize(-1); },
        [&] { S.Carrier.ReDimSize(1 << 30); },    [&] { S.Carrier.BuffPut(1 << 30, Wave{1}); },
        [&] { S.Carrier.BuffPut(Max, Wave(2)); }, [&] { S.Carrier.BuffGet(Max, Buf); },
        [&] { S.Carrier.MovePointer(2); },        [&] { S.Carrier.MovePointer(-1); },
        [&] { S.Carrier.MovePointer(0, -1); },    [&] { S.Carrier.BuffLength(0); },
    };
    for (std::size_t I = 0; I < Refused.size(); ++I) {
        EXPECT_THROW(Refused[I](), RuntimeFailure) << I;
        EXPECT_EQ(S.Carrier.WaveSize(), 2) << I;
        EXPECT_EQ(S.Carrier.BuffLength(), 262144) << I;
    }
    const auto Raw = S.Disk.Content.extract("f");  // its file is gone: no other is made
    EXPECT_THROW(S.Carrier.FileName1(), RuntimeFailure);
    EXPECT_THROW(S.Carrier.ReDimSize(9), RuntimeFailure);
    EXPECT_FALSE(S.Disk.Exists("f"));
    S.Disk.Content["f"] = Raw.mapped();
    EXPECT_EQ(S.Carrier.FileName1(), "f");
    EXPECT_EQ(S.In("f"), (Wave{5, 8}));
    S.Carrier.ReDimSize(0);
    EXPECT_EQ(S.Carrier.WaveLR(1), 0);
    EXPECT_THAT(S.Box.Texts, SizeIs(1)) << "a shrink cuts the buffer too";
    EXPECT_THAT(S.Disk.Content["f"], SizeIs(0));
    S.Carrier.ReDimSize(10);
    S.Carrier.BuffLength(10);
    S.Disk.Writes.clear();
    S.Carrier.ReDimSize(33, true);
    EXPECT_THAT(S.Disk.Writes, ElementsAre(20, 20, 6)) << "no more memory than the buffer's";
}

TEST(FileCarrier, LosesNothingBehindAWaveSizeThatWasSetLower) {
    FileShop S;
    S.Adopt({1, 2, 3});
    S.Carrier.BuffLength(3);
    S.Carrier.MovePointer(2);
    S.Carrier.WaveLR(3, 99);
    int Calls = S.Disk.Calls;
    S.Carrier.WaveSize(1);
    S.Carrier.WaveSize(3);
    EXPECT_EQ(S.Carrier.WaveLR(3), 99);
    EXPECT_EQ(S.Disk.Calls, Calls) << "it is a number and no more";
    for (int Call = 1; Call <= 10; ++Call) {  // flush, growth, load: open, work on it, close
        const auto Sample = static_cast<std::int16_t>(99 + Call);
        S.Carrier.WaveLR(3, Sample);
        S.Carrier.WaveSize(1);
        S.Disk.FailAtCall = S.Disk.Calls + Call;
        EXPECT_THROW(S.Carrier.BuffPut(1, Wave{7, 8, 9}), RuntimeFailure) << Call;
        S.Disk.FailAtCall = 0;
        S.Carrier.WaveSize(3);
        EXPECT_EQ(S.All(), (Wave{1, 2, Sample})) << Call;
        S.Carrier.MovePointer(2);
        EXPECT_EQ(S.In("f"), (Wave{1, 2, Sample})) << Call;
    }
    S.Carrier.WaveLR(3, 98);
    S.Disk.Content["f"].resize(4);         // by somebody else
    S.Disk.FailAtCall = S.Disk.Calls + 9;  // the load, after growth and flush
    EXPECT_THROW(S.Carrier.BuffPut(2, Wave{7, 8, 9}), RuntimeFailure);
    EXPECT_EQ(S.In(S.Carrier.FileName1()), (Wave{1, 2, 98})) << "written back and then cut off";
    S.Carrier.MovePointer(0);
    S.Carrier.WaveSize(0);
    S.Carrier.ReDimSize(3, true);
    EXPECT_EQ(S.All(), (Wave{0, 0, 0})) << "what the file holds, not what the buffer held";
}

TEST(FileCarrier, MakesTheFileThatFollowsAReleasedOneWhenItWritesTheWholeChannel) {
    FileShop S;
    S.Adopt({5, 6});
    S.Carrier.FileRelease();
    const std::string Chosen = S.Carrier.FileName1();
    S.Carrier.WaveLR(2, 3);
    for (int Call = 1; Call <= 3; ++Call) {  // create, write, close
        S.Disk.FailAtCall = S.Disk.Calls + Call;
        EXPECT_THROW(S.Carrier.FileName1(), RuntimeFailure) << Call;
        EXPECT_FALSE(S.Disk.Exists(Chosen)) << Call;
    }
    EXPECT_EQ(S.Carrier.FileName1(), Chosen);
    EXPECT_EQ(S.In(Chosen), (Wave{5, 3}));

    S.Carrier.FileRelease();
    EXPECT_THROW(S.Carrier.ReDimSize(3), RuntimeFailure) << "nothing has changed yet";
    S.Carrier.WaveLR(1, 4);
    S.Carrier.BuffPut(3, Wave{8});
    EXPECT_EQ(S.In(S.Carrier.FileName1()), (Wave{4, 3, 8}));

    S.Carrier.BuffLength(2);
    S.Carrier.FileRelease();
    S.Carrier.WaveLR(1, 9);
    EXPECT_THROW(S.Carrier.FileName1(), RuntimeFailure) << "the third sample is in no hands";
    EXPECT_EQ(S.Carrier.WaveLR(1), 9);
    S.Carrier.WaveSize(0);
    S.Carrier.BuffPut(1, Wave{7});
    EXPECT_EQ(S.In(S.Carrier.FileName1()).front(), 7);

    S.Carrier.FileRelease();
    S.Carrier.WaveSize(0);
    S.Carrier.ReDimSize(2);
    EXPECT_EQ(S.In(S.Carrier.FileName1()), (Wave{0, 0})) << "an empty channel lacks nothing";
    EXPECT_EQ(S.In("f"), (Wave{5, 6}));
    EXPECT_EQ(S.In(Chosen), (Wave{5, 3}));
}

TEST(FileCarrier, CompletesAFileThatBlocksKeep) {
    Shop S;
    const VirtualClock Noon;
    S.Disk.Put16("other", Wave{1});
    const auto Keep = [&](FileCarrBuffClass& Carrier, std::int16_t Sample) {
        const std::string Name = Carrier.FileName1();
        S.HandOver({{3, 1, 1, Name}});
        Carrier.WaveLR(1, Sample);
        return Name;
    };
    std::string Last;
    {
        FileCarrBuffClass Carrier(S.Store, Noon);
        const std::string First = Keep(Carrier, 4);
        for (int Call = 1; Call <= 14; ++Call) {  // look, read, copy; then open, write, close
            S.Disk.FailAtCall = S.Disk.Calls + Call;
            EXPECT_THROW(Carrier.FileName1("other"), RuntimeFailure) << Call;
            EXPECT_EQ(Carrier.WaveLR(1), 4) << Call;
        }
        Carrier.FileName1("other");
        EXPECT_EQ(S.Disk.Content[First], (MemoryFiles::Bytes{4, 0}));
        Last = Keep(Carrier, 5);
    }
    EXPECT_EQ(S.Disk.Content[Last], (MemoryFiles::Bytes{5, 0}));
}

TEST(FileCarrier, LeavesAReleasedFileAloneAndNeedsANewOneBeforeItWrites) {
    FileShop S;
    S.Adopt({5, 6});
    S.Carrier.WaveLR(1, 4);
    S.Carrier.FileRelease();
    EXPECT_EQ(S.In("f"), (Wave{4, 6}));
    const std::string Chosen = S.Carrier.FileName1();
    FileCarrBuffClass Beside(S.Store, S.Clock);
    EXPECT_NE(Beside.FileName1(), Chosen);
    EXPECT_FALSE(S.Disk.Exists(Chosen));
    S.Disk.Put16(Chosen, Wave{1});  // somebody else's by now
    EXPECT_EQ(S.All(), (Wave{4, 6})) << "the buffer stays";
    S.Carrier.WaveLR(2, 3);
    EXPECT_THROW(S.Carrier.FileName1(), RuntimeFailure);
    EXPECT_THROW(S.Carrier.ReDimSize(5), RuntimeFailure);
    EXPECT_THROW(S.Carrier.ReDimSize(1), RuntimeFailure);
    EXPECT_EQ(S.All(), (Wave{4, 3}));
    S.Carrier.FileName1(Chosen);  // unless it is taken over
    EXPECT_EQ(S.In(Chosen), Wave{1});
    EXPECT_EQ(S.All(), Wave{1});
    S.Disk.Put16("locked", Wave{1});
    S.Disk.ReadOnly = "locked";
    EXPECT_THROW(S.Carrier.FileName1("locked"), RuntimeFailure);
    EXPECT_EQ(S.In(Chosen), Wave{1}) << "refused before its own file is gone";
    S.Carrier.FileName1("none");
    EXPECT_FALSE(S.Disk.Exists(Chosen));
    EXPECT_EQ(S.In("f"), (Wave{4, 6}));
}

TEST(FileCarrier, RefusesFilesByWhatTheyAreBeforeItDeletesItsOwn) {
    TempFolder Folder;
    PosixFiles Disk;
    ListBox Box;
    PlayerState State;
    State.AppTmpDir = Folder / "";
    State.AppTmpDir.pop_back();
    const VirtualClock Clock;
    Put(Folder / "orig", "abcd");
    Put(Folder / "work", "efgh");
    Put(Folder / "tiny", "i");
    WoroFileBlockMod Store(Disk, Box, State);
    std::string Kept;
    {
        BlocksFromBlkInLst(Store, ListOf({{3, 2, 1, Folder / "work"}, {4, 2, 3, Folder / "orig"}}));
        FileCarrBuffClass Carrier(Store, Clock);
        FileCarrBuffClass Other(Store, Clock);
        const std::int32_t Blk = Store.BlockNew(2, BlkFile);
        const std::string Spare = Store.WorkFile(Store.Block(Blk).BlkFileNo).WorkFileName;
        Store.BlockFree(Blk);
        const std::string Own = Carrier.FileName1();
        std::filesystem::create_hard_link(Folder / Own.substr(Own.rfind('\\') + 1), Folder / "own");
        std::filesystem::create_symlink("orig", Folder / "link");
        for (const bool AsItIs : {true, false}) {
            Carrier.UseOrgFile(AsItIs);
            std::vector<std::string> Names{Own, Folder / "./own", Folder / "tiny", Folder / ""};
            if (AsItIs) {
                Names.insert(Names.end(),
                             {Spare, Other.FileName1(), Folder / "link", Folder / ".\\work"});
            }
            for (const std::string& Name : Names) {
                EXPECT_THROW(Carrier.FileName1(Name), RuntimeFailure) << Name;
                EXPECT_EQ(Carrier.FileName1(), Own);
                EXPECT_TRUE(Disk.Exists(Own));
            }
        }
        Carrier.FileName1(Folder / "work");  // a copy of it
        EXPECT_FALSE(Disk.Exists(Own));
        EXPECT_EQ(Carrier.WaveLR(2), 'g' + 256 * 'h');
        Carrier.ReDimSize(1);
        EXPECT_TRUE(SetFileSize(Disk, Folder / "tiny", 3));
        EXPECT_EQ(Get(Folder / "tiny"), std::string("i\0\0", 3));
        EXPECT_FALSE(SetFileSize(Disk, Folder / "", 3) || SetFileSize(Disk, Folder / "no", 3) ||
                     SetFileSize(Disk, Folder / "tiny", -1));
        // Blocks that read from a carrier's file keep it.
        Kept = Other.FileName1();
        BlocksFromBlkInLst(Store, ListOf({{3, 1, 1, Kept}}));
    }
    EXPECT_TRUE(Disk.Exists(Kept));
    EXPECT_EQ(Get(Folder / "work"), "efgh");
    EXPECT_THAT(Folder.Names(), SizeIs(7));  // and orig, tiny, link, own, the spare one
}

TEST(FileCarrier, CopiesLongFilesInPiecesAndRefusesWhatPositionsCannotReach) {
    TempFolder Folder;
    PosixFiles Disk;
    ListBox Box;
    PlayerState State;
    State.MemorySizeToUse = 0;
    State.AppTmpDir = Folder / "work";
    std::filesystem::create_directory(State.AppTmpDir);
    const VirtualClock Clock;
    WoroFileBlockMod Store(Disk, Box, State);
    FileCarrBuffClass Carrier(Store, Clock);
    std::string Long(2 * 1024 * 1024 + 3, ' ');
    Dice D{7};
    for (char& Each : Long)
        Each = static_cast<char>(D.Below(256) - 128);
    Put(Folder / "long", Long);
    Carrier.FileName1(Folder / "long");
    EXPECT_EQ(Carrier.WaveSize(), 1024 * 1024 + 1);
    const std::string Own = Carrier.FileName1();
    EXPECT_TRUE(Get(State.AppTmpDir + "/" + Own.substr(Own.rfind('\\') + 1)) == Long);

    Put(Folder / "huge", "");
    std::filesystem::resize_file(Folder / "huge", std::uintmax_t{Max} + 1);
    for (const bool AsItIs : {true, false}) {
        Carrier.UseOrgFile(AsItIs);
        EXPECT_THROW(Carrier.FileName1(Folder / "huge"), RuntimeFailure) << AsItIs;
        EXPECT_EQ(Carrier.FileName1(), Own);
    }
    std::filesystem::resize_file(Folder / "huge", std::uintmax_t{Max});
    Carrier.UseOrgFile(true);
    Carrier.FileName1(Folder / "huge");
    EXPECT_EQ(Carrier.WaveSize(), Max / 2);
    EXPECT_EQ(Carrier.WaveLR(Max / 2), 0);
}

}  // namespace
}  // namespace Tolvar::Testing
