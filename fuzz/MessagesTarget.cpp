#include <cstddef>
#include <cstdint>

#include "fuzz/Messages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Bytes, std::size_t Count) {
    Tolvar::Fuzz::HearMessages({Bytes, Count});
    return 0;
}
