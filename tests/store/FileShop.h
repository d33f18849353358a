#pragma once

#include <map>
#include <string>

#include "platform/Clocks.h"
#include "store/FileCarrBuffClass.h"
#include "tests/store/Shop.h"

namespace Tolvar::Testing {

/// A carrier that may take over "f", and the store around it.
struct FileShop : Shop {
    VirtualClock Clock;  // noon
    FileCarrBuffClass Carrier{Store, Clock};

    void Take(const std::string& Name, bool AsItIs) {
        Carrier.UseOrgFile(AsItIs);
        Carrier.FileName1(Name);
    }
    void Adopt(const Wave& Samples) {
        Disk.Put16("f", Samples);
        Take("f", true);
    }
    Wave All() {
        Wave Buf(static_cast<std::size_t>(Carrier.WaveSize()), 9);
        const auto Piece = static_cast<std::size_t>(Carrier.BuffLength());
        for (std::size_t At = 0; At < Buf.size(); At += Piece) {
            Carrier.BuffGet(static_cast<std::int32_t>(At) + 1,
                            std::span(Buf).subspan(At, std::min(Piece, Buf.size() - At)));
        }
        return Buf;
    }
    /// The whole samples in a file; none when there is no such file.
    Wave In(const std::string& Name) const {
        const auto Place = Disk.Content.find(Name);
        const auto Raw = Place != Disk.Content.end() ? Place->second : MemoryFiles::Bytes{};
        Wave Found;
        for (std::size_t At = 1; At < Raw.size(); At += 2)
            Found.push_back(static_cast<std::int16_t>(Raw[At - 1] + 256 * Raw[At]));
        return Found;
    }
    std::map<std::string, std::size_t> FileSizes() const {
        std::map<std::string, std::size_t> Sizes;
        for (const auto& [Name, Raw] : Disk.Content)
            Sizes[Name] = Raw.size();
        return Sizes;
    }
};

}  // namespace Tolvar::Testing
