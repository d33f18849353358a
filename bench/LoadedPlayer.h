#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/FirstWrite.h"
#include "card/devices/DirectX7Layer.h"
#include "card/devices/ServiceLoader.h"
#include "card/devices/WaveOutDevice.h"
#include "card/sinks/NullSink.h"
#include "card/voices/SoundCard.h"
#include "platform/Apartment.h"
#include "platform/System.h"
#include "platform/VirtualClock.h"
#include "platform/posix/PosixFiles.h"
#include "server/PlayDllClass.h"
#include "state/PlayDllMod.h"
#include "store/BlockRec.h"
#include "store/WoroFileBlockMod.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Bench {

inline constexpr std::int32_t Rate = 44100;
inline constexpr std::int32_t SegFrames = 4 * Rate;
inline constexpr std::int32_t BytesInFile = 8 * 1024 * 1024;

/// The blocks of one channel, all in one file or nowhere.
struct ChannelBlocks {
    BlkTypes Type = BlkOrgFile;
    std::int32_t Count = 1;
    std::int32_t Len = 1024;    ///< samples a block
    std::int32_t Channels = 1;  ///< in the file
    std::int32_t Bits = 16;
    std::int32_t Channel = 0;      ///< 0 left, 1 right
    bool NameEach = false;         ///< each block names a file of its own, which does not exist
    std::int32_t LenInFile = Len;  ///< samples from one block to the next; 0: all have the same
};

/// A block list whose blocks tile a channel. They go through the file at Path round and round, so
/// that long channels need no big file.
std::vector<std::int32_t> ListOf(const ChannelBlocks& Blocks, const std::string& Path);

/// A file of BytesInFile bytes, which are samples of every layout, in the temporary folder; gone
/// when this is.
class SampleFile {
  public:
    SampleFile();
    ~SampleFile();
    SampleFile(const SampleFile&) = delete;
    SampleFile& operator=(const SampleFile&) = delete;
    const std::string& Path() const { return Path_; }

  private:
    std::string Path_;
};

/// A player object with all that stands under it, on the virtual clock; nothing is heard.
struct LoadedPlayer {
    /// A wave of 44.1 kHz. Right is empty for a mono wave. Throws std::logic_error when it was not
    /// taken.
    void HandOver(std::int32_t Bits, const std::vector<std::int32_t>& Left,
                  const std::vector<std::int32_t>& Right, std::int32_t Frames);

    /// Brings every block of the wave into memory, where there is room for all of them.
    void LoadAll();

    /// What an engine sets for the wave that was handed over, where there is no engine.
    void SetGeometry();

    EngineOrder Engine = EngineOrder::Auto;
    PlayerState State = {};
    VirtualClock Time = {};
    Testing::ListLog Journal = {};
    Testing::ListBox Box = {};
    PosixFiles FileLayer = {};
    Apartment Home{Time, Journal};
    SoundCard Card{Home, {std::make_unique<NullSink>(), nullptr}, SinkRate{}, Journal};
    WaveOutDevice Device{Card};
    FirstWrite Wave{Device};
    DlServiceLibrary Service{Card, Journal};
    System Os{Home, FileLayer, Box, Journal, Wave, Service, [this] {
                  return std::make_unique<DirectX7Root>(Card);
              }};
    WoroFileBlockMod Store{FileLayer, Box, State};
    PlayDllClass Player{Os, State, Store, Engine};
};

}  // namespace Tolvar::Bench
