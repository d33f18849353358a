#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "store/BlkInLstReader.h"
#include "store/WoroFileBlockMod.h"

namespace Tolvar {

/// RuntimeFailure(Input) that names the channel, the entry and the index of the value when the
/// list breaks its rules. Makes nothing.
void BlkInLstCheck(BlockList BlkInLst, std::string_view Channel);

/// Makes one block per entry; the caller owns them. Entry 0 of the result is 0. Checks the list
/// first; whatever fails leaves no block and no use count behind. Opens no file. An entry whose
/// type code is none that a list may hold is shown in the message box and becomes silent.
std::vector<std::int32_t> BlocksFromBlkInLst(WoroFileBlockMod& Store, BlockList BlkInLst);

}  // namespace Tolvar
