#include "bench/LoadedPlayer.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "store/BlockRec.h"
#include "waveplay/BlockListBuilder.h"

namespace Tolvar::Bench {

std::vector<std::int32_t> ListOf(Source From, std::int32_t Count, const std::string& Path) {
    BlockListBuilder List;
    for (std::int32_t Blk = 0; Blk < Count; ++Blk) {
        BlockEntry Entry;
        Entry.Len = SamplesPerBlock;
        Entry.Code = From == Source::Silent     ? BlkSilent
                     : From == Source::WorkFile ? BlkFile
                                                : BlkOrgFile;
        // The file is gone through round and round, so that big channels need no big file.
        Entry.FilePos = 1 + Blk % (SamplesInFile / SamplesPerBlock) * SamplesPerBlock * 2;
        if (From != Source::Silent) Entry.Name = Path;
        if (From == Source::ManyFiles) Entry.Name += std::to_string(Blk);
        List.Append(Entry);
    }
    return List.Values();
}

SampleFile::SampleFile()
    : PathOf(std::filesystem::temp_directory_path() /
             ("tolvar-bench-" + std::to_string(std::uint64_t{std::random_device{}()}) + ".raw")) {
    std::vector<std::int16_t> Samples(SamplesInFile);
    for (std::size_t At = 0; At < Samples.size(); ++At) {
        Samples[At] = static_cast<std::int16_t>(At * 7);
    }
    const auto Bytes = std::as_bytes(std::span(Samples));
    std::ofstream Out(PathOf, std::ios::binary);
    Out.write(reinterpret_cast<const char*>(Bytes.data()),
              static_cast<std::streamsize>(Bytes.size()));
    if (!Out.flush()) throw std::runtime_error("cannot write " + PathOf);
}

SampleFile::~SampleFile() {
    std::error_code Ignored;
    std::filesystem::remove(PathOf, Ignored);
}

void LoadedPlayer::HandOver(const std::vector<std::int32_t>& List, std::int32_t Count) {
    Player.WriteWaveMemo(16, 1, 44100, Count * SamplesPerBlock, List, {});
    if (Store.BlockCnt() < Count) throw std::logic_error("the wave was not taken");
}

}  // namespace Tolvar::Bench
