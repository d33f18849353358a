#pragma once

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

/// Reads a block list entry by entry and checks it on the way: RuntimeFailure(Input) names the
/// channel, the entry and the index of the value that breaks a rule.
class BlkInLstReader {
  public:
    /// The list must outlive the reader. Channel may be "".
    BlkInLstReader(BlockList BlkInLst, std::string_view Channel);

    std::int32_t Count() const { return Entries_; }

    /// False behind the last entry.
    bool Next(BlkInEntry& Entry);

  private:
    std::string Where(std::size_t At) const;
    [[noreturn]] void Refuse(std::size_t At, const std::string& What) const;
    [[noreturn]] void RefuseEnd(const std::string& What) const;
    void CheckName(std::size_t NameValues) const;
    void CheckLen(std::size_t At);

    BlockList List_;
    std::string_view Channel_;
    std::int32_t Entries_ = 0;
    std::int32_t EntryNo_ = 0;  // of the entry that was read last
    std::size_t Pos_ = 0;       // values read
    std::int64_t Samples_ = 0;
};

/// The file name in a checked name record; "" for a length of 0 or less. Names are bytes.
std::string BlkNameFromLongs(BlockList NameRecord);

}  // namespace Tolvar
