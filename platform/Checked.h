#pragma once

#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>

#include "platform/RuntimeFailure.h"

namespace Tolvar {

/// Wide as To, or RuntimeFailure(Overflow) when it does not fit. Every checked 32-bit result of
/// the system is computed in 64 bits and passes through here.
template <std::signed_integral To>
constexpr To Checked(std::int64_t Wide) {
    if (Wide < std::numeric_limits<To>::min() || Wide > std::numeric_limits<To>::max()) {
        throw RuntimeFailure(FailureKind::Overflow, "Overflow: " + std::to_string(Wide) +
                                                        " does not fit in " +
                                                        std::to_string(sizeof(To) * 8) + " bits");
    }
    return static_cast<To>(Wide);
}

constexpr std::int32_t CheckedAdd(std::int32_t A, std::int32_t B) {
    return Checked<std::int32_t>(std::int64_t{A} + B);
}
constexpr std::int32_t CheckedSub(std::int32_t A, std::int32_t B) {
    return Checked<std::int32_t>(std::int64_t{A} - B);
}
constexpr std::int32_t CheckedMul(std::int32_t A, std::int32_t B) {
    return Checked<std::int32_t>(std::int64_t{A} * B);
}

/// The one rounding of the system: to the nearest integer, halves to the even neighbour.
/// RuntimeFailure(Overflow) when the result does not fit or Value is not a number.
inline std::int32_t Round32(double Value) {
    const double Nearest = std::nearbyint(Value);  // the process never leaves FE_TONEAREST
    if (!(Nearest >= -2147483648.0 && Nearest <= 2147483647.0)) {
        throw RuntimeFailure(FailureKind::Overflow,
                             "Overflow: " + std::to_string(Value) + " does not fit in 32 bits");
    }
    return static_cast<std::int32_t>(Nearest);
}

}  // namespace Tolvar
