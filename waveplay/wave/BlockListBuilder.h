#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tolvar {

/// One entry of a channel's block list as the editor describes it. Nothing is checked here: the
/// server is given what the editor says.
struct BlockEntry {
    std::int32_t Code = 0;  ///< one of BlkTypes, or a code that the server must refuse
    std::int32_t Len = 0;   ///< samples
    std::optional<std::int32_t> StartPos = {};  ///< 1-based; none: right after the entry before
    std::int32_t FilePos = 1;                   ///< bytes, 1-based
    std::int32_t Channels = 1;
    std::int32_t Bits = 16;
    std::string Name = {};
};

/// A channel's block list in the making: the values that a hand-over passes, from index 1 on.
class BlockListBuilder {
  public:
    /// RuntimeFailure(Overflow), and nothing appended, when the entry count or a start that is to
    /// follow the entry before does not fit in 32 bits.
    void Append(const BlockEntry& Entry);

    /// The list is exactly these values; an entry without a start that is appended later has 1.
    void Assign(std::vector<std::int32_t> Whole);

    /// No entry: the list says 0 blocks.
    void Clear() { Assign({0}); }

    const std::vector<std::int32_t>& Values() const { return List_; }

  private:
    std::vector<std::int32_t> List_ = {0};
    std::int64_t NextStartPos_ = 1;
};

}  // namespace Tolvar
