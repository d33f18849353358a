#include "store/CheckedBlockList.h"

#include <limits>

#include "platform/RuntimeFailure.h"

namespace Tolvar {

namespace {

constexpr std::size_t ValuesBehindName = 6;

// Values that hold so many bytes of a name.
constexpr std::int64_t ValuesFor(std::int32_t NameBytes) {
    return (std::int64_t{NameBytes} + 3) / 4;
}

/// The walk that finds what breaks a rule.
class Check {
  public:
    Check(BlockList BlkInLst, std::string_view Channel) : List_(BlkInLst), Channel_(Channel) {}

    void Run() {
        if (List_.empty()) RefuseEnd("the number of blocks");
        if (List_[0] < 1) Refuse(0, "the number of blocks must be 1 or more");
        while (EntryNo_ < List_[0])
            CheckEntry();
    }

  private:
    void CheckEntry();
    void CheckName(std::size_t NameValues) const;
    void CheckLen(std::size_t At);
    std::string Where(std::size_t At) const;
    [[noreturn]] void Refuse(std::size_t At, const std::string& What) const;
    [[noreturn]] void RefuseEnd(const std::string& What) const;

    BlockList List_;
    std::string_view Channel_;
    std::int32_t EntryNo_ = 0;
    std::size_t Pos_ = 1;  // where the entry begins
    std::int64_t Samples_ = 0;
};

void Check::CheckEntry() {
    ++EntryNo_;
    if (Pos_ == List_.size()) RefuseEnd("this entry; it announces " + std::to_string(List_[0]));
    if (List_[Pos_] < 1) Refuse(Pos_, "a name record has 1 value or more");
    const auto NameValues = static_cast<std::size_t>(List_[Pos_]);
    const std::size_t Left = List_.size() - Pos_ - 1;
    if (NameValues > Left) Refuse(Pos_, "the name record goes beyond the end of the list");
    CheckName(NameValues);
    if (Left - NameValues < ValuesBehindName) RefuseEnd("the six values behind the name have come");
    CheckLen(Pos_ + 1 + NameValues);
    Pos_ += 1 + NameValues + ValuesBehindName;
}

void Check::CheckName(std::size_t NameValues) const {
    const std::int32_t NameBytes = List_[Pos_ + 1];
    if (NameBytes <= 0 || ValuesFor(NameBytes) < static_cast<std::int64_t>(NameValues)) return;
    Refuse(Pos_ + 1, "a name of so many bytes needs a name record of " +
                         std::to_string(1 + ValuesFor(NameBytes)) + " values, it has " +
                         std::to_string(NameValues));
}

void Check::CheckLen(std::size_t At) {
    if (List_[At] < 1) Refuse(At, "a block has 1 sample or more");
    Samples_ += List_[At];
    if (Samples_ > std::numeric_limits<std::int32_t>::max()) {
        Refuse(At, "the channel becomes longer than 2147483647 samples");
    }
}

std::string Check::Where(std::size_t At) const {
    std::string Text = Channel_.empty() ? "Block list" : "Block list " + std::string(Channel_);
    if (EntryNo_ > 0) Text += ", entry " + std::to_string(EntryNo_);
    return Text + ", index " + std::to_string(At + 1);
}

void Check::Refuse(std::size_t At, const std::string& What) const {
    throw RuntimeFailure(FailureKind::Input,
                         Where(At) + ", value " + std::to_string(List_[At]) + ": " + What);
}

void Check::RefuseEnd(const std::string& What) const {
    throw RuntimeFailure(FailureKind::Input,
                         Where(List_.size()) + ": the list ends before " + What);
}

}  // namespace

CheckedBlockList::CheckedBlockList(BlockList BlkInLst, std::string_view Channel) : List_(BlkInLst) {
    Check(BlkInLst, Channel).Run();
}

/// The entry that begins at At, which then is where the next one begins.
BlkInEntry CheckedBlockList::EntryAt(std::size_t& At) const {
    const auto NameValues = static_cast<std::size_t>(List_[At]);
    const BlockList NameRecord = List_.subspan(At + 1, NameValues);
    const BlockList Behind = List_.subspan(At + 1 + NameValues, ValuesBehindName);
    At += 1 + NameValues + ValuesBehindName;
    return {NameRecord, Behind[0], Behind[1], Behind[2], Behind[3], Behind[4], Behind[5]};
}

std::string BlkNameFromLongs(BlockList NameRecord) {
    if (NameRecord[0] <= 0) return {};
    std::string Name(static_cast<std::size_t>(NameRecord[0]), '\0');
    for (std::size_t I = 0; I < Name.size(); ++I) {
        const auto Packed = static_cast<std::uint32_t>(NameRecord[1 + I / 4]);
        Name[I] = static_cast<char>(Packed >> (I % 4 * 8) & 0xFF);
    }
    return Name;
}

}  // namespace Tolvar
