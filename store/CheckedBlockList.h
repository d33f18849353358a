#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tolvar {

/// The editor's block list of one channel: its values from index 1 on. The first one is the number
/// of entries; what follows the last entry is not looked at, because the editor's array may be
/// longer than its list.
using BlockList = std::span<const std::int32_t>;

/// One entry of a block list. The name record points into the list.
struct BlkInEntry {
    BlockList NameRecord;  ///< the name's length in bytes, then the bytes, four to a value
    std::int32_t BlkLen;
    std::int32_t TypeCode;
    std::int32_t BlkStartPos;
    std::int32_t BlkFilePos;
    std::int32_t Channels;
    std::int32_t Bits;
};

/// A block list that keeps its rules, so that whoever makes blocks of it need not look again. Any
/// thread; it points into the editor's array, which must outlive it.
class CheckedBlockList {
  public:
    /// Goes through the list once. RuntimeFailure(Input) names the channel, the entry and the index
    /// of the value that breaks a rule. Channel may be "".
    explicit CheckedBlockList(BlockList BlkInLst, std::string_view Channel = "");

    /// Entries, 1 or more.
    std::int32_t Count() const { return List_[0]; }

    /// Calls Visit(const BlkInEntry&) with every entry in order.
    template <class Visitor>
    void ForEach(Visitor&& Visit) const {
        std::size_t At = 1;
        for (std::int32_t Left = Count(); Left > 0; --Left)
            Visit(EntryAt(At));
    }

  private:
    BlkInEntry EntryAt(std::size_t& At) const;

    BlockList List_;
};

/// The file name in a checked name record; "" for a length of 0 or less. Names are bytes.
std::string BlkNameFromLongs(BlockList NameRecord);

}  // namespace Tolvar
