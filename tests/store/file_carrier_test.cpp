#include <gmock/gmock.h>

#include <filesystem>

#include "platform/Clocks.h"
#include "platform/PosixFiles.h"
#include "store/FileCarrBuffClass.h"
#include "tests/store/Shop.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

/// A carrier that may take over "f", and the store around it.
struct FileShop : Shop {
    VirtualClock Clock;  // noon
    FileCarrBuffClass Carrier{Store, Clock};

    void Adopt(const Wave& Samples, std::size_t OddBytes = 0) {
        Disk.Put16("f", Samples);
        Disk.Content["f"].resize(2 * Samples.size() + OddBytes, 77);
        Carrier.UseOrgFile(true);
        Carrier.FileName1("f");
    }
    Wave All() {
        Wave Buf(static_cast<std::size_t>(Carrier.WaveSize()), 9);
        const auto Piece = static_cast<std::size_t>(Carrier.BuffLength());
        for (std::size_t At = 0; At < Buf.size(); At += Piece) {
            Carrier.BuffGet(static_cast<std::int32_t>(At) + 1,
                            std::span(Buf).subspan(At, std::min(Piece, Buf.size() - At)));
        }
        return Buf;
    }
    /// The whole samples in a file; none when there is no such file.
    Wave In(const std::string& Name) const {
        const auto Place = Disk.Content.find(Name);
        const auto Raw = Place != Disk.Content.end() ? Place->second : MemoryFiles::Bytes{};
        Wave Found;
        for (std::size_t At = 1; At < Raw.size(); At += 2)
            Found.push_back(static_cast<std::int16_t>(Raw[At - 1] + 256 * Raw[At]));
        return Found;
    }
    std::map<std::string, std::size_t> FileSizes() const {
        std::map<std::string, std::size_t> Sizes;
        for (const auto& [Name, Raw] : Disk.Content)
            Sizes[Name] = Raw.size();
        return Sizes;
    }
};

TEST(FileCarrier, StartsWithOneSampleInAFileNamedAfterTheTimeOfDayAndDeletesIt) {
    Shop S;
    const VirtualClock Noon;
    S.State.MemorySizeToUse = 20 * 262146;
    S.Disk.Put16("tmp\\tm43201.tmp", Wave{42});  // somebody else's
    {
        FileCarrBuffClass First(S.Store, Noon);
        S.State.MemorySizeToUse = 20 * 262149;
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
    EXPECT_EQ(Buf, Wave(3, 9));
    EXPECT_EQ(S.Disk.Calls, Calls);
    EXPECT_EQ(S.All(), (Wave{5, 6, 7}));
}

TEST(FileCarrier, RefusesWhatCannotBeAndKeepsWhatItHas) {
    FileShop S;
    S.Adopt({5, 6});
    S.Carrier.WaveLR(2, 8);
    const std::vector<std::function<void()>> Refused{
        [&] { S.Carrier.ReDimSize(-1); },         [&] { S.Carrier.WaveSize(-1); },
        [&] { S.Carrier.ReDimSize(1 << 30); },    [&] { S.Carrier.BuffPut(1 << 30, Wave{1}); },
        [&] { S.Carrier.BuffPut(Max, Wave(2)); }, [&] { S.Carrier.MovePointer(2); },
        [&] { S.Carrier.MovePointer(-1); },       [&] { S.Carrier.MovePointer(0, -1); },
        [&] { S.Carrier.BuffLength(0); },
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
}

TEST(FileCarrier, GrowsInPiecesAndKeepsTheHalfSampleOfAnOddFile) {
    FileShop S;
    S.Adopt({5, 6}, 1);
    S.Carrier.BuffLength(10);
    EXPECT_EQ(S.Carrier.WaveSize(), 2);
    EXPECT_THAT(S.Disk.Content["f"], SizeIs(5));
    for (int Call = 1; Call <= 7; ++Call) {
        S.Disk.FailAtCall = S.Disk.Calls + Call;  // open, measure, read, three writes, close
        EXPECT_THROW(S.Carrier.ReDimSize(23, true), RuntimeFailure) << Call;
        EXPECT_EQ(S.Disk.Content["f"], (MemoryFiles::Bytes{5, 0, 6, 0, 77})) << Call;
    }
    S.Disk.Writes.clear();
    S.Carrier.ReDimSize(23, true);
    EXPECT_THAT(S.Disk.Writes, ElementsAre(20, 20, 2));
    Wave Expected{5, 6};
    Expected.resize(23);
    EXPECT_EQ(S.All(), Expected);
    S.Carrier.ReDimSize(40);
    Expected.resize(40);
    EXPECT_EQ(S.All(), Expected);
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
    S.Carrier.FileName1("none");
    EXPECT_FALSE(S.Disk.Exists(Chosen));
    EXPECT_EQ(S.Carrier.WaveSize(), 0);
    EXPECT_EQ(S.Carrier.FileName1(), "");
    EXPECT_THROW(S.Carrier.MovePointer(1), RuntimeFailure);
    EXPECT_EQ(S.Carrier.FileName1(), "");
    S.Carrier.MovePointer(0);
    EXPECT_EQ(S.All(), Wave{0});
    S.Carrier.WaveLR(1, 7);
    S.Carrier.WaveSize(0);
    S.Carrier.FileRelease();
    EXPECT_EQ(S.All(), Wave{0}) << "a new file, not the buffer of the old one";
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

// Any sequence of operations, most with a file call that fails, against a plain array.
class FileCarrierModel : public testing::TestWithParam<std::uint32_t> {};

TEST_P(FileCarrierModel, HoldsTheSameSamplesAsAPlainArray) {
    FileShop S;
    FileCarrBuffClass& Carrier = S.Carrier;
    Dice D{GetParam()};
    Wave Model(1);
    std::string Own = Carrier.FileName1();
    Carrier.BuffLength(7);
    const auto Random = [&](std::int32_t Count) {
        Wave Made(static_cast<std::size_t>(Count));
        for (std::int16_t& Each : Made)
            Each = static_cast<std::int16_t>(D.Below(65536) - 32768);
        return Made;
    };
    // Half a sample that lies behind the others becomes the low half of the first one of a gap.
    const auto Widen = [&](std::size_t NewSz, bool Zeros) {
        const std::size_t Old = Model.size();
        const bool Half = S.Disk.Content[Own].size() == 2 * Old + 1 && !Zeros && NewSz > Old + 1;
        return [&Model, NewSz, Old, Half] {
            Model.resize(NewSz);
            if (Half) Model[Old] = 77;
        };
    };
    const auto Take = [&](const std::string& Name, bool AsItIs) {
        const bool Exists = S.Disk.Content.contains(Name);
        const Wave Given = S.In(Name);
        Carrier.UseOrgFile(AsItIs);
        Carrier.FileName1(Name);
        Own = Carrier.FileName1();
        Model = Exists ? Given : Wave(AsItIs ? 0 : 1);
    };
    const auto Release = [&] {
        Carrier.FileRelease();
        S.Disk.FailAtCall = 0;
        ASSERT_EQ(S.In(Own), Model);
        // An empty file is no channel, and a new one has been made instead.
        if (Model.empty()) S.Disk.Content.erase(Own);
        Take(Model.empty() ? "none" : Own, !Model.empty());
    };
    const auto Operate = [&](std::int32_t What, int Step) {
        if (Own.empty()) {
            Carrier.MovePointer(0);
            Own = Carrier.FileName1();
            Model = {0};
            return;
        }
        const std::int32_t Pos = D.Below(Size(Model) + 5) - 1;
        const bool Inside = Pos >= 1 && Pos <= Size(Model);
        if (What < 35) {
            Carrier.WaveLR(Pos, static_cast<std::int16_t>(Step));
            if (Inside) Model.begin()[Pos - 1] = static_cast<std::int16_t>(Step);
        } else if (What < 50) {
            const std::int16_t Expected = Inside ? Model.begin()[Pos - 1] : std::int16_t{0};
            if (Pos != 0) {
                EXPECT_EQ(Carrier.WaveLR(Pos), Expected);
            }
        } else if (What < 70) {
            const Wave Data = Random(D.Below(Carrier.BuffLength() + 2));
            const std::size_t End = static_cast<std::size_t>(std::max(Pos, 1)) - 1 + Data.size();
            const auto Follow = Widen(std::max(End, Model.size()), false);
            Carrier.BuffPut(Pos, Data);
            if (Pos < 1 || Data.empty() || Size(Data) > Carrier.BuffLength()) return;
            Follow();
            std::ranges::copy(Data, Model.begin() + Pos - 1);
        } else if (What < 80) {
            const std::int32_t NewSz = D.Below(80);
            const bool Zeros = D.Below(2) == 0;
            const auto Follow = Widen(static_cast<std::size_t>(NewSz), Zeros);
            Carrier.ReDimSize(NewSz, Zeros);
            Follow();
        } else if (What < 86) {
            if (Inside) Carrier.MovePointer(Pos - 1, D.Below(12));
        } else if (What < 90) {
            if (!Model.empty()) Carrier.BuffLength(1 + D.Below(30));
        } else if (What < 94) {
            ASSERT_EQ(Carrier.FileName1(), Own);
            EXPECT_EQ(S.In(Own), Model);
        } else if (What < 96) {
            Release();
        } else {
            Take(What == 96 ? "none" : Own == "given" ? "other" : "given", D.Below(2) == 0);
        }
    };
    int Failures = 0;
    for (int Step = 0; Step < 4000; ++Step) {
        SCOPED_TRACE(Step);
        const std::string Given = Own == "given" ? "other" : "given";
        S.Disk.Put16(Given, Random(1 + D.Below(60)));
        if (D.Below(3) == 0) S.Disk.Content[Given].push_back(77);
        const auto Sizes = S.FileSizes();
        const std::int32_t BuffLength = Carrier.BuffLength();
        S.Disk.FailAtCall = D.Below(3) != 0 ? S.Disk.Calls + 1 + D.Below(13) : 0;
        try {
            Operate(D.Below(100), Step);
        } catch (const RuntimeFailure&) {
            ++Failures;
            ASSERT_EQ(S.FileSizes(), Sizes);
            ASSERT_EQ(Carrier.BuffLength(), BuffLength);
        }
        S.Disk.FailAtCall = 0;
        ASSERT_EQ(Carrier.WaveSize(), Size(Model));
        ASSERT_EQ(S.Disk.OpenNow, 0);
        if (D.Below(6) == 0) {
            ASSERT_EQ(S.All(), Model);
        }
    }
    EXPECT_GT(Failures, 500);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FileCarrierModel, testing::Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace Tolvar::Testing
