#include <filesystem>
#include <functional>

#include "platform/posix/PosixFiles.h"
#include "tests/store/Shop.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

TEST(FileCarrier, StartsWithOneSampleInAFileNamedAfterTheTimeOfDayAndDeletesIt) {
    Shop S;
    const VirtualClock Noon;
    S.Settings.MemorySizeToUse = 20 * 262148 - 11;
    S.Disk.Put16("tmp\\tm43201.tmp", Wave{42});  // somebody else's
    {
        FileCarrBuffClass First(S.Store, Noon);
        S.Settings.MemorySizeToUse = 20 * 262148 - 10;  // rounded to a whole sample, then to a four
        FileCarrBuffClass Second(S.Store, Noon);
        EXPECT_EQ(First.FileName1(), "tmp\\tm43202.tmp");
        EXPECT_EQ(Second.FileName1(), "tmp\\tm43203.tmp");
        EXPECT_EQ(S.Disk.Content["tmp\\tm43203.tmp"], MemoryFiles::Bytes(2));
        EXPECT_EQ(First.BuffLength(), 262144);
        EXPECT_EQ(Second.BuffLength(), 262148);
    }
    EXPECT_THAT(S.Disk.Content, SizeIs(1));
}

TEST(FileCarrier, AnswersWhatIsOutsideInTheMessageBoxAndGoesOn) {
    FileShop S;
    S.Adopt({5, 6, 7});
    S.Carrier.BuffLength(2);
    S.Carrier.WaveLR(0, 11);
    EXPECT_EQ(S.Carrier.WaveLR(0), 11) << "a sample of its own";
    S.Carrier.WaveLR(4, 1);
    Wave Buf(3, 9);
    for (const std::int32_t Pos : {0, 3})
        S.Carrier.BuffGet(Pos, std::span(Buf).first(2));
    S.Carrier.BuffGet(Max, Buf);  // longer than the buffer
    EXPECT_EQ(std::exchange(S.Box.Texts, {}), std::vector<std::string>(4, "Out of limit - Error"));
    S.Carrier.BuffPut(-3, Wave{1});
    S.Carrier.BuffPut(Max, Buf);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Out of limit - Error\r\n 1 2-3",
                                         "Out of limit - Error\r\n 3 2 2147483647"));
    EXPECT_EQ(Buf, Wave(3, 9));
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
    EXPECT_FALSE(S.Disk.Exists("f"));
    S.Disk.Content["f"] = Raw.mapped();
    S.Disk.ReadOnly = "locked";
    S.Disk.Put16("locked", Wave{1});
    EXPECT_THROW(S.Carrier.FileName1("locked"), RuntimeFailure);
    S.Carrier.BuffLength(2);
    EXPECT_EQ(S.In("f"), (Wave{5, 8}));
    const int Calls = S.Disk.Calls;
    S.Carrier.ReDimSize(7, true);
    EXPECT_EQ(S.Disk.Calls, Calls + 3 + 3) << "three writes: no more memory than the buffer's";
    for (const bool Zeros : {false, true}) {  // where the file holds more than the wave
        S.Carrier.BuffPut(1, Wave{5, 6});
        S.Carrier.WaveSize(0);
        S.Carrier.ReDimSize(2, Zeros);
        EXPECT_EQ(S.All(), (Wave{std::int16_t(Zeros ? 0 : 5), 0}));
    }
}

TEST(FileCarrier, FillsItsFileAgainWhenAGrowthFailsThatFoundItCut) {
    FileShop S;
    S.Adopt({1, 2, 3});
    S.Carrier.BuffLength(3);
    S.Carrier.MovePointer(2);
    S.Carrier.WaveLR(3, 98);
    S.Disk.Content["f"].resize(4);         // by somebody else
    S.Disk.FailAtCall = S.Disk.Calls + 9;  // the load, after growth and flush
    EXPECT_THROW(S.Carrier.BuffPut(2, Wave{7, 8, 9}), RuntimeFailure);
    EXPECT_EQ(S.In(S.Carrier.FileName1()), (Wave{1, 2, 98}));
}

TEST(FileCarrier, MovesItsBufferToTheStartWhenAShrinkReachesIt) {
    FileShop S;
    S.Adopt({1, 2, 3, 4});
    S.Carrier.BuffLength(2);
    S.Carrier.MovePointer(2);
    S.Carrier.ReDimSize(2);
    const int Calls = S.Disk.Calls;
    EXPECT_EQ(S.Carrier.WaveLR(2), 2);
    EXPECT_EQ(S.Disk.Calls, Calls);
}

TEST(FileCarrier, LeavesAReleasedFileAloneAndMakesTheNextWhenItWritesTheWholeChannel) {
    FileShop S;
    S.Adopt({5, 6});
    S.Carrier.WaveLR(1, 4);
    S.Carrier.FileRelease();
    const std::string Next = S.Carrier.FileName1();
    EXPECT_NE(FileCarrBuffClass(S.Store, S.Clock).FileName1(), Next);
    EXPECT_EQ(S.All(), (Wave{4, 6})) << "the buffer stays";
    EXPECT_THROW(S.Carrier.ReDimSize(3), RuntimeFailure) << "nothing has changed yet";
    S.Carrier.ReDimSize(2);
    EXPECT_FALSE(S.Disk.Exists(Next)) << "a file that is not there is left alone";
    S.Carrier.WaveLR(2, 3);
    for (int Call = 1; Call <= 3; ++Call) {  // create, write, close
        S.Disk.FailAtCall = S.Disk.Calls + Call;
        EXPECT_THROW(S.Carrier.FileName1(), RuntimeFailure) << Call;
        EXPECT_FALSE(S.Disk.Exists(Next)) << Call;
    }
    S.Disk.Put16(Next, Wave{1});  // somebody else's
    EXPECT_THROW(S.Carrier.ReDimSize(1), RuntimeFailure);
    EXPECT_EQ(S.In(Next), Wave{1});
    S.Disk.Content.erase(Next);
    S.Carrier.BuffPut(3, Wave{8});
    EXPECT_EQ(S.In(S.Carrier.FileName1()), (Wave{4, 3, 8}));

    S.Carrier.BuffLength(2);
    S.Carrier.FileRelease();
    S.Carrier.WaveLR(1, 9);
    EXPECT_THROW(S.Carrier.FileName1(), RuntimeFailure) << "the third sample is in no hands";
    S.Carrier.WaveSize(0);
    S.Carrier.ReDimSize(2);
    const std::string Last = S.Carrier.FileName1();
    EXPECT_THAT(S.In(Last), SizeIs(2)) << "an empty channel lacks nothing";
    S.Carrier.FileName1("none");
    EXPECT_THAT(S.FileSizes(), ElementsAre(std::pair("f", 4U), std::pair(Next, 6U)));
    EXPECT_EQ(S.In("f"), (Wave{4, 6}));
}

TEST(FileCarrier, TakesRealFilesByWhatTheyAreAndDeletesItsOwn) {
    const TempFolder Folder;
    PosixFiles Disk;
    ListBox Box;
    StoreSettings Settings;
    Settings.AppTmpDir = Folder / "tmp";
    const VirtualClock Clock;
    WoroFileBlockMod Store{Disk, Box, Settings};
    std::filesystem::create_directory(Settings.AppTmpDir);
    const auto PathOf = [&](const std::string& WorkFile) {
        return Settings.AppTmpDir + "/" + WorkFile.substr(WorkFile.rfind('\\') + 1);
    };
    Put(Folder / "orig", "abcd");
    Put(Folder / "work", "efgh");
    Put(Folder / "tiny", "i");
    Put(Folder / "huge", "");
    std::filesystem::resize_file(Folder / "huge", std::uintmax_t{Max} + 1);
    std::string Kept;
    {
        BlocksFromBlkInLst(
            Store,
            CheckedBlockList(ListOf({{3, 2, 1, Folder / "work"}, {4, 2, 3, Folder / "orig"}})));
        FileCarrBuffClass Carrier(Store, Clock);
        FileCarrBuffClass Other(Store, Clock);
        const std::int32_t Blk = Store.BlockNew(2, BlkFile);
        const std::string Spare = Store.WorkFile(Store.Block(Blk).BlkFileNo).WorkFileName;
        Store.BlockFree(Blk);
        const std::string Own = Carrier.FileName1();
        std::filesystem::create_hard_link(PathOf(Own), Folder / "own");
        std::filesystem::create_symlink("orig", Folder / "link");
        std::vector<std::string> Names{Own, Folder / "./own", Folder / "tiny", Folder / "huge"};
        for (const bool AsItIs : {false, true}) {
            Carrier.UseOrgFile(AsItIs);
            for (const std::string& Name : Names) {
                EXPECT_THROW(Carrier.FileName1(Name), RuntimeFailure) << Name;
                EXPECT_EQ(Carrier.FileName1(), Own);
                EXPECT_TRUE(Disk.Exists(Own));
            }
            Names = {Own, Spare, Other.FileName1(), Folder / "link", Folder / ".\\work"};
        }
        std::filesystem::resize_file(Folder / "huge", std::uintmax_t{Max});
        Carrier.FileName1(Folder / "huge");
        EXPECT_EQ(Carrier.WaveSize(), Max / 2);
        EXPECT_EQ(Carrier.WaveLR(Max / 2), 0);
        EXPECT_FALSE(Disk.Exists(Own));
        Carrier.UseOrgFile(false);
        Carrier.FileName1(Folder / "work");  // a copy of it
        EXPECT_EQ(Carrier.WaveLR(2), 'g' + 256 * 'h');
        Carrier.ReDimSize(1);
        EXPECT_TRUE(SetFileSize(Disk, Folder / "tiny", 3));
        EXPECT_EQ(Get(Folder / "tiny"), std::string("i\0\0", 3));
        EXPECT_FALSE(SetFileSize(Disk, Folder / "", 3) || SetFileSize(Disk, Folder / "no", 3) ||
                     SetFileSize(Disk, Folder / "tiny", -1));
        Kept = Other.FileName1();
        BlocksFromBlkInLst(Store, CheckedBlockList(ListOf({{3, 1, 1, Kept}})));
        Other.WaveLR(1, 'k' + 256 * 't');
    }
    EXPECT_EQ(Get(PathOf(Kept)), "kt") << "blocks read from it";
    EXPECT_EQ(Get(Folder / "work"), "efgh");
    EXPECT_THAT(Folder.Names(), SizeIs(6));  // orig, work, tiny, link, own, tmp
}

TEST(FileCarrier, CopiesALongFileInPieces) {
    FileShop S;
    MemoryFiles::Bytes& Long = S.Disk.Content["long"];
    for (int I = 0; I < 2 * 1024 * 1024 + 3; ++I)
        Long.push_back(static_cast<std::uint8_t>(I / 4099));
    S.Take("long", false);
    EXPECT_TRUE(S.Disk.Content[S.Carrier.FileName1()] == Long);
}

// Any sequence of operations, most with a file call that fails, against a plain array.
class FileCarrierModel : public TestWithParam<std::uint32_t> {
  public:
    FileShop S;
    FileCarrBuffClass& Carrier = S.Carrier;
    Dice D{GetParam()};
    Wave Model = Wave(1);
    std::string Own = Carrier.FileName1();
    int Failures = 0;

    Wave Random(std::int32_t Count) {
        Wave Made(static_cast<std::size_t>(Count));
        for (std::int16_t& Each : Made)
            Each = static_cast<std::int16_t>(D.Below(65536) - 32768);
        return Made;
    }
    bool Inside(std::int32_t Pos) const { return Pos >= 1 && Pos <= Size(Model); }

    void WriteOne(std::int32_t Pos) {
        const auto Sample = static_cast<std::int16_t>(D.Below(1000));
        Carrier.WaveLR(Pos, Sample);
        if (Inside(Pos)) Model.begin()[Pos - 1] = Sample;
    }
    void ReadOne(std::int32_t Pos) {
        if (Pos == 0) return;
        EXPECT_EQ(Carrier.WaveLR(Pos), Inside(Pos) ? Model.begin()[Pos - 1] : 0);
    }
    void Put(std::int32_t Pos, const Wave& Data) {
        Carrier.BuffPut(Pos, Data);
        if (Pos < 1 || Data.empty() || Size(Data) > Carrier.BuffLength()) return;
        Model.resize(std::max(static_cast<std::size_t>(Pos) - 1 + Data.size(), Model.size()));
        std::ranges::copy(Data, Model.begin() + Pos - 1);
    }
    void Resize(std::int32_t NewSz) {
        Carrier.ReDimSize(NewSz, D.Below(2) == 0);
        Model.resize(static_cast<std::size_t>(NewSz));
    }
    void Take(const std::string& Name, bool AsItIs) {
        const bool Exists = S.Disk.Content.contains(Name);
        const Wave Given = S.In(Name);
        S.Take(Name, AsItIs);
        Own = Carrier.FileName1();
        Model = Exists ? Given : Wave(AsItIs ? 0 : 1);
    }
    void MakeFirst() {
        Carrier.MovePointer(0);
        Own = Carrier.FileName1();
        Model = {0};
    }
    void Complete() {
        ASSERT_EQ(Carrier.FileName1(), Own);
        EXPECT_EQ(S.In(Own), Model);
    }
    std::string Spare() const { return Own == "given" ? "other" : "given"; }

    void Operate() {
        if (Own.empty()) return MakeFirst();
        const std::int32_t What = D.Below(100), Pos = D.Below(Size(Model) + 5) - 1;
        if (What < 35) return WriteOne(Pos);
        if (What < 46) return ReadOne(Pos);
        if (What < 66) return Put(Pos, Random(D.Below(Carrier.BuffLength() + 2)));
        if (What < 80) return Resize(D.Below(80));
        if (What < 85) return Complete();
        if (What < 90) return Take(What == 85 ? "none" : Spare(), D.Below(2) == 0);
        if (What < 96 && Inside(Pos)) return Carrier.MovePointer(Pos - 1, D.Below(12));
        if (!Model.empty()) Carrier.BuffLength(1 + D.Below(30));
    }
    void Step() {
        const auto Sizes = S.FileSizes();
        const std::int32_t BuffLength = Carrier.BuffLength();
        S.Disk.FailAtCall = D.Below(3) != 0 ? S.Disk.Calls + 1 + D.Below(13) : 0;
        try {
            Operate();
        } catch (const RuntimeFailure&) {
            ++Failures;
            EXPECT_EQ(S.FileSizes(), Sizes);
            EXPECT_EQ(Carrier.BuffLength(), BuffLength);
        }
        S.Disk.FailAtCall = 0;
        EXPECT_EQ(Carrier.WaveSize(), Size(Model));
        EXPECT_EQ(S.Disk.OpenNow, 0);
        if (D.Below(6) == 0) {
            EXPECT_EQ(S.All(), Model);
        }
    }
};

TEST_P(FileCarrierModel, HoldsTheSameSamplesAsAPlainArray) {
    Carrier.BuffLength(7);
    for (int Count = 0; Count < 4000 && !HasFailure(); ++Count) {
        SCOPED_TRACE(Count);
        const std::string Given = Spare();
        S.Disk.Put16(Given, Random(1 + D.Below(60)));
        Step();
    }
    EXPECT_GT(Failures, 500);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FileCarrierModel, Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace Tolvar::Testing
