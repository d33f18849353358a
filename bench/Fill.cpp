// What a segment costs against moving the same bytes with nothing in between.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/LoadedPlayer.h"
#include "bench/Sections.h"
#include "bench/Table.h"
#include "platform/posix/Posix.h"
#include "stream/StreamBuffFill.h"

namespace Tolvar::Bench {
namespace {

constexpr int Segments = 10;
constexpr int Turns = 41;

struct Kind {
    const char* Name;
    std::int32_t Bits;
    std::int32_t Channels;
    BlkTypes Type;
    std::int32_t BlkLen;
    bool InMemory;
    bool AskedForSpeed;
};
// 50000 samples: what a carrier makes of a budget of a million bytes.
constexpr Kind Kinds[] = {
    {"memory, 16-bit mono", 16, 1, BlkOrgFile, 50'000, true, true},
    {"memory, 16-bit stereo", 16, 2, BlkOrgFile, 50'000, true, true},
    {"memory, 8-bit mono", 8, 1, BlkOrgFile, 50'000, true, false},
    {"memory, 8-bit stereo", 8, 2, BlkOrgFile, 50'000, true, false},
    {"original file, 16-bit mono", 16, 1, BlkOrgFile, Segments* SegFrames, false, true},
    {"original file, 16-bit stereo", 16, 2, BlkOrgFile, Segments* SegFrames, false, true},
    {"original file, stereo, blocks of 50000", 16, 2, BlkOrgFile, 50'000, false, true},
    {"original file, 8-bit mono", 8, 1, BlkOrgFile, Segments* SegFrames, false, true},
    {"original file, 8-bit stereo", 8, 2, BlkOrgFile, Segments* SegFrames, false, true},
    {"work files, 16-bit mono", 16, 1, BlkFile, 50'000, false, true},
    {"work files, 16-bit stereo", 16, 2, BlkFile, 50'000, false, true},
};

class Subject {
  public:
    Subject(const Kind& Which, const std::string& Path) : Kind_(Which) {
        ChannelBlocks Blocks{.Type = Kind_.Type,
                             .Count = (Segments * SegFrames + Kind_.BlkLen - 1) / Kind_.BlkLen,
                             .Len = Kind_.BlkLen,
                             .Channels = Kind_.Type == BlkOrgFile ? Kind_.Channels : 1,
                             .Bits = Kind_.Bits};
        const auto Left = ListOf(Blocks, Path);
        Blocks.Channel = Blocks.Channels - 1;
        const auto Right = Kind_.Channels == 2 ? ListOf(Blocks, Path) : std::vector<std::int32_t>{};
        Loaded_.HandOver(Kind_.Bits, Left, Right, Segments * SegFrames);
        Loaded_.SetGeometry();
        if (Kind_.InMemory) Loaded_.LoadAll();
    }

    void FillAll(std::int32_t Direction) {
        PlayerState& State = Loaded_.State;
        State.PlayDirection = Direction;
        State.FillNextPos = 1;
        for (int Segment = 0; Segment < Segments; ++Segment) {
            if (!StreamBuffFill(State, 1 + Segment % 2)) throw std::logic_error("nothing filled");
        }
    }

  private:
    Kind Kind_;
    LoadedPlayer Loaded_;
};

/// The same bytes by themselves: those that lie in the file read, those of the segment moved into a
/// double buffer.
class Mover {
  public:
    Mover(const Kind& Which, const std::string& Path)
        : SegBytes_(static_cast<std::size_t>(2 * SegFrames * Which.Channels)),
          FileBytes_(static_cast<std::size_t>(Which.Bits / 8 * SegFrames * Which.Channels)),
          Source_(SegBytes_ * (Which.InMemory ? Segments : 1), 'a'),
          Buffer_(2 * SegBytes_),
          File_(Which.InMemory ? Descriptor() : OpenDescriptor(Path, O_RDONLY)) {}

    void MoveAll() {
        for (std::size_t Segment = 0; Segment < Segments; ++Segment) {
            const char* From = Source_.data();
            if (!File_) {
                From += Segment * SegBytes_;
            } else if (pread(File_.Get(), Source_.data(), FileBytes_,
                             static_cast<off_t>(Segment * FileBytes_)) !=
                       static_cast<ssize_t>(FileBytes_)) {
                throw std::runtime_error("cannot read the sample file");
            }
            std::memcpy(Buffer_.data() + Segment % 2 * SegBytes_, From, SegBytes_);
        }
    }

  private:
    std::size_t SegBytes_;
    std::size_t FileBytes_;
    std::vector<char> Source_;
    std::vector<char> Buffer_;
    Descriptor File_;
};

void Compare(const Kind& Each, const std::string& Path) {
    Subject Ours(Each, Path);
    Mover Theirs(Each, Path);
    for (const std::int32_t Direction : {1, -1}) {
        Comparison Ran = InTurns(
            Turns, [&] { return NsOf([&] { Ours.FillAll(Direction); }) / Segments; },
            [&] { return NsOf([&] { Theirs.MoveAll(); }) / Segments; });
        PrintRow(std::string(Each.Name) + (Direction == 1 ? ", forward" : ", reverse"),
                 Each.InMemory ? "memcpy" : "pread and memcpy", Ran, Each.AskedForSpeed ? 2 : 0);
    }
}

}  // namespace

void MeasureFill() {
    PrintHead("a segment of four seconds");
    const SampleFile File;
    for (const Kind& Each : Kinds)
        Compare(Each, File.Path());
}

}  // namespace Tolvar::Bench
