#include "waveplay/wave/BlockListBuilder.h"

#include "platform/Checked.h"

namespace Tolvar {
namespace {

// The name record: its value count, the length in bytes, then four bytes to a value, low first.
void AppendName(std::vector<std::int32_t>& List, const std::string& Name) {
    const std::size_t Words = (Name.size() + 3) / 4;
    List.push_back(Checked<std::int32_t>(static_cast<std::int64_t>(1 + Words)));
    List.push_back(Checked<std::int32_t>(static_cast<std::int64_t>(Name.size())));
    for (std::size_t Word = 0; Word < Words; ++Word) {
        std::uint32_t Packed = 0;
        for (std::size_t Byte = 0; Byte < 4 && Word * 4 + Byte < Name.size(); ++Byte) {
            const auto Value = static_cast<unsigned char>(Name[Word * 4 + Byte]);
            Packed |= std::uint32_t{Value} << (8 * Byte);
        }
        List.push_back(static_cast<std::int32_t>(Packed));
    }
}

}  // namespace

void BlockListBuilder::Append(const BlockEntry& Entry) {
    const std::int32_t StartPos =
        Entry.StartPos ? *Entry.StartPos : Checked<std::int32_t>(NextStartPos_);
    const std::int32_t Count = CheckedAdd(List_.empty() ? 0 : List_.front(), 1);

    if (List_.empty()) List_.push_back(0);
    List_.front() = Count;
    AppendName(List_, Entry.Name);
    for (const std::int32_t Value :
         {Entry.Len, Entry.Code, StartPos, Entry.FilePos, Entry.Channels, Entry.Bits}) {
        List_.push_back(Value);
    }
    NextStartPos_ = std::int64_t{StartPos} + Entry.Len;
}

void BlockListBuilder::Assign(std::vector<std::int32_t> Whole) {
    List_ = std::move(Whole);
    NextStartPos_ = 1;
}

}  // namespace Tolvar
