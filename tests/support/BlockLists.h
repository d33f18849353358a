#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Tolvar::Testing {

/// One entry of an editor's block list.
struct ListEntry {
    std::int32_t Type = 5;
    std::int32_t Len = 1;
    std::int32_t Start = 1;
    std::string_view Name = {};
    std::int32_t FilePos = 1;
    std::int32_t Channels = 1;
    std::int32_t Bits = 16;
};

inline std::vector<std::int32_t> ListOf(const std::vector<ListEntry>& Entries) {
    std::vector<std::int32_t> List{static_cast<std::int32_t>(Entries.size())};
    for (const ListEntry& E : Entries) {
        std::vector<std::int32_t> Packed((E.Name.size() + 3) / 4);
        std::ranges::copy(std::as_bytes(std::span(E.Name)),
                          std::as_writable_bytes(std::span(Packed)).begin());
        List.push_back(static_cast<std::int32_t>(1 + Packed.size()));
        List.push_back(static_cast<std::int32_t>(E.Name.size()));
        List.insert(List.end(), Packed.begin(), Packed.end());
        List.insert(List.end(), {E.Len, E.Type, E.Start, E.FilePos, E.Channels, E.Bits});
    }
    return List;
}

}  // namespace Tolvar::Testing
