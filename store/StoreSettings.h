#pragma once

#include <cstdint>
#include <string>

namespace Tolvar {

/// What the editor sets of the block store; read whenever it is needed. Apartment's thread only.
struct StoreSettings {
    std::int32_t MemorySizeToUse = 0;  ///< bytes of samples that the block store may keep
    std::string AppTmpDir;             ///< where work files are made; "": nowhere
};

}  // namespace Tolvar
