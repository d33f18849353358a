#include <cstddef>
#include <cstdint>

#include "fuzz/Targets.h"

// FUZZ_TARGET is the one of Targets.h that this program is built for.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Bytes, std::size_t Count) {
    Tolvar::Fuzz::FUZZ_TARGET({Bytes, Count});
    return 0;
}
