#pragma once

#include <cstdint>
#include <vector>

#include "store/CheckedBlockList.h"
#include "store/WoroFileBlockMod.h"

namespace Tolvar {

/// Makes one block per entry; the caller owns them. Entry 0 of the result is 0. Whatever fails
/// leaves no block and no use count behind. Opens no file. An entry whose type code is none that a
/// list may hold is shown in the message box and becomes silent. Apartment's thread.
std::vector<std::int32_t> BlocksFromBlkInLst(WoroFileBlockMod& Store,
                                             const CheckedBlockList& BlkInLst);

}  // namespace Tolvar
