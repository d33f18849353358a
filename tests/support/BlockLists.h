#pragma once

#include <cstddef>
#include <cstdint>
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
        const std::size_t Words = (E.Name.size() + 3) / 4;
        List.push_back(static_cast<std::int32_t>(1 + Words));
        List.push_back(static_cast<std::int32_t>(E.Name.size()));
        for (std::size_t Word = 0; Word < Words; ++Word) {
            std::uint32_t Packed = 0;
            for (std::size_t Byte = 0; Byte < 4 && 4 * Word + Byte < E.Name.size(); ++Byte) {
                Packed |=
                    static_cast<std::uint32_t>(static_cast<unsigned char>(E.Name[4 * Word + Byte]))
                    << (8 * Byte);
            }
            List.push_back(static_cast<std::int32_t>(Packed));
        }
        List.insert(List.end(), {E.Len, E.Type, E.Start, E.FilePos, E.Channels, E.Bits});
    }
    return List;
}

}  // namespace Tolvar::Testing
