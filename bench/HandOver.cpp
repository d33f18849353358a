// What a block costs when the editor hands a wave over, for waves of 10^3 to 10^6 blocks.

#include <malloc.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/LoadedPlayer.h"
#include "bench/Sections.h"
#include "bench/Table.h"

namespace Tolvar::Bench {
namespace {

constexpr std::int32_t Thousand = 1000;
constexpr std::int32_t Million = 1000 * 1000;
constexpr int Turns = 5;
constexpr const char* Path = "/nowhere/wave.raw";

struct Kind {
    const char* Name;
    ChannelBlocks Blocks;
    bool Flat;  ///< the cost of a block must not grow with their number
};
// A million files are a million names to keep and find, which no cache holds.
const Kind Kinds[] = {{"silent", {.Type = BlkSilent}, true},
                      {"one original file", {}, true},
                      {"one work file", {.Type = BlkFile}, true},
                      {"a file each", {.NameEach = true}, false}};

class Editor {
  public:
    Editor(ChannelBlocks Blocks, std::int32_t Count) : Len_(Blocks.Len), Blks_(Count) {
        Blocks.Count = Count;
        List_ = ListOf(Blocks, Path);
    }

    /// A block of the first wave of a server's life: every page of memory comes from the system.
    double FirstNs() {
        Server_ = std::make_unique<LoadedPlayer>();
        malloc_trim(0);
        return HandOverNs();
    }

    /// A block for a server that holds such a wave already: the old one goes, the new one comes.
    double AgainNs() {
        if (!Server_) FirstNs();
        return HandOverNs();
    }

  private:
    double HandOverNs() {
        return NsOf([&] { Server_->HandOver(16, List_, {}, Blks_ * Len_); }) / Blks_;
    }

    std::int32_t Len_;
    std::int32_t Blks_;
    std::vector<std::int32_t> List_;
    std::unique_ptr<LoadedPlayer> Server_;
};

void Compare(const Kind& Each, std::int32_t Count) {
    const std::string Name = std::string(Each.Name) + ", " + std::to_string(Count) + " blocks, ";
    const double Limit = Each.Flat && Count == Million ? 1.5 : 0;
    Editor Ours(Each.Blocks, Count);
    Editor Theirs(Each.Blocks, Thousand);
    PrintRow(Name + "first", "1000 blocks",
             InTurns(
                 Turns, [&] { return Ours.FirstNs(); }, [&] { return Theirs.FirstNs(); }),
             Limit);
    PrintRow(Name + "again", "1000 blocks",
             InTurns(
                 Turns, [&] { return Ours.AgainNs(); }, [&] { return Theirs.AgainNs(); }),
             Limit);
}

}  // namespace

void MeasureHandOver() {
    PrintHead("a block handed over");
    for (const Kind& Each : Kinds) {
        for (std::int32_t Count = 10 * Thousand; Count <= Million; Count *= 10)
            Compare(Each, Count);
    }
}

}  // namespace Tolvar::Bench
