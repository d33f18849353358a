#include "store/OnFailure.h"
#include "tests/store/FileShop.h"

namespace Tolvar::Testing {
namespace {

// Any sequence of operations, most with a file call that fails, against a plain array.
class FileCarrierModel : public testing::TestWithParam<std::uint32_t> {
  public:
    FileShop S;
    FileCarrBuffClass& Carrier = S.Carrier;
    Dice D{GetParam()};
    Wave Model = Wave(1);
    std::string Own = Carrier.FileName1();

    Wave Random(std::int32_t Count) {
        Wave Made(static_cast<std::size_t>(Count));
        for (std::int16_t& Each : Made)
            Each = static_cast<std::int16_t>(D.Below(65536) - 32768);
        return Made;
    }
    std::int32_t AnyPos() { return D.Below(Size(Model) + 5) - 1; }
    bool Inside(std::int32_t Pos) const { return Pos >= 1 && Pos <= Size(Model); }

    // What a growth from Old samples does to the array once the carrier has done it.
    auto Widen(std::int32_t Old, std::int32_t NewSz, bool Zeros) {
        const std::int32_t Whole = Size(Model);
        // Half a sample that lies behind the others becomes the low half of the first of a gap.
        const bool Half = Size(S.Disk.Content[Own]) == 2 * Whole + 1 && !Zeros && NewSz > Whole + 1;
        return [=, this] {
            Model.resize(static_cast<std::size_t>(NewSz));
            if (Half) Model.begin()[Whole] = 77;
            if (Old < NewSz) std::fill(Model.begin() + (Zeros ? Old : NewSz - 1), Model.end(), 0);
        };
    }

    void WriteOne() {
        const std::int32_t Pos = AnyPos();
        const auto Sample = static_cast<std::int16_t>(D.Below(1000));
        Carrier.WaveLR(Pos, Sample);
        if (Inside(Pos)) Model.begin()[Pos - 1] = Sample;
    }
    void ReadOne() {
        const std::int32_t Pos = AnyPos();
        if (Pos == 0) return;
        EXPECT_EQ(Carrier.WaveLR(Pos), Inside(Pos) ? Model.begin()[Pos - 1] : std::int16_t{0});
    }
    void Put(std::int32_t Old, std::int32_t Pos, const Wave& Data) {
        const bool Fits = Pos >= 1 && !Data.empty() && Size(Data) <= Carrier.BuffLength();
        const std::int32_t End = Fits ? Pos - 1 + Size(Data) : Old;
        const auto Follow = Widen(Old, std::max(End, Size(Model)), false);
        Carrier.BuffPut(Pos, Data);
        if (!Fits) return;
        Follow();
        std::ranges::copy(Data, Model.begin() + Pos - 1);
    }
    void Resize(std::int32_t Old, std::int32_t NewSz) {
        const bool Zeros = D.Below(2) == 0;
        const auto Follow = Widen(Old, NewSz, Zeros);
        Carrier.ReDimSize(NewSz, Zeros);
        Follow();
    }
    // Sets WaveSize lower and grows from there, at least to what the file holds.
    void GrowFromLower() {
        const std::int32_t Whole = Size(Model);
        const std::int32_t Old = D.Below(Whole + 1);
        const std::int32_t End = Whole + D.Below(5);
        Carrier.WaveSize(Old);
        const OnFailure Raise([&] {
            EXPECT_EQ(Carrier.WaveSize(), Old);
            Carrier.WaveSize(Whole);
        });
        if (End == Old || D.Below(2) == 0) return Resize(Old, End);
        const std::int32_t Count = 1 + D.Below(std::min(End, Carrier.BuffLength()));
        Put(Old, End - Count + 1, Random(Count));
    }
    void Take(const std::string& Name, bool AsItIs) {
        const bool Exists = S.Disk.Content.contains(Name);
        const Wave Given = S.In(Name);
        S.Take(Name, AsItIs);
        Own = Carrier.FileName1();
        Model = Exists ? Given : Wave(AsItIs ? 0 : 1);
    }
    void Release() {
        Carrier.FileRelease();
        S.Disk.FailAtCall = 0;
        ASSERT_EQ(S.In(Own), Model);
        // An empty file is no channel, and a new one has been made instead.
        if (Model.empty()) S.Disk.Content.erase(Own);
        Take(Model.empty() ? "none" : Own, !Model.empty());
    }
    void MakeFirst() {
        Carrier.MovePointer(0);
        Own = Carrier.FileName1();
        Model = {0};
    }
    std::string Spare() const { return Own == "given" ? "other" : "given"; }

    void OperateOnFile(std::int32_t What) {
        if (What < 4) {
            ASSERT_EQ(Carrier.FileName1(), Own);
            EXPECT_EQ(S.In(Own), Model);
        } else if (What < 6) {
            Release();
        } else {
            Take(What == 6 ? "none" : Spare(), D.Below(2) == 0);
        }
    }
    void Operate(std::int32_t What) {
        if (Own.empty()) return MakeFirst();
        const std::int32_t Pos = AnyPos();
        if (What < 35) {
            WriteOne();
        } else if (What < 46) {
            ReadOne();
        } else if (What < 66) {
            Put(Size(Model), Pos, Random(D.Below(Carrier.BuffLength() + 2)));
        } else if (What < 74) {
            Resize(Size(Model), D.Below(80));
        } else if (What < 80) {
            GrowFromLower();
        } else if (What < 86) {
            if (Inside(Pos)) Carrier.MovePointer(Pos - 1, D.Below(12));
        } else if (What < 90) {
            if (!Model.empty()) Carrier.BuffLength(1 + D.Below(30));
        } else {
            OperateOnFile(What - 90);
        }
    }
    // True when it failed.
    bool Step() {
        const auto Sizes = S.FileSizes();
        const std::int32_t BuffLength = Carrier.BuffLength();
        S.Disk.FailAtCall = D.Below(3) != 0 ? S.Disk.Calls + 1 + D.Below(13) : 0;
        bool Failed = false;
        try {
            Operate(D.Below(100));
        } catch (const RuntimeFailure&) {
            Failed = true;
            EXPECT_EQ(S.FileSizes(), Sizes);
            EXPECT_EQ(Carrier.BuffLength(), BuffLength);
        }
        S.Disk.FailAtCall = 0;
        EXPECT_EQ(Carrier.WaveSize(), Size(Model));
        EXPECT_EQ(S.Disk.OpenNow, 0);
        if (D.Below(6) == 0) {
            EXPECT_EQ(S.All(), Model);
        }
        return Failed;
    }
};

TEST_P(FileCarrierModel, HoldsTheSameSamplesAsAPlainArray) {
    Carrier.BuffLength(7);
    int Failures = 0;
    for (int Count = 0; Count < 4000 && !HasFailure(); ++Count) {
        SCOPED_TRACE(Count);
        const std::string Given = Spare();
        S.Disk.Put16(Given, Random(1 + D.Below(60)));
        if (D.Below(3) == 0) S.Disk.Content[Given].push_back(77);
        Failures += Step() ? 1 : 0;
    }
    EXPECT_GT(Failures, 500);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FileCarrierModel, testing::Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace Tolvar::Testing
