#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Apartment.h"
#include "platform/Clocks.h"
#include "platform/DirectX7Layer.h"
#include "platform/PosixFiles.h"
#include "platform/ServiceLoader.h"
#include "platform/SoundCard.h"
#include "platform/System.h"
#include "platform/WaveOutDevice.h"
#include "server/PlayDllClass.h"
#include "server/PlayDllMod.h"
#include "store/WoroFileBlockMod.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Bench {

/// Where the blocks of a measured list have their samples.
enum class Source : std::int8_t {
    Silent,
    OneFile,    ///< all in one original file, 16-bit mono
    WorkFile,   ///< all in one work file
    ManyFiles,  ///< each in an original file of its own
};

inline constexpr std::int32_t SamplesPerBlock = 1024;
inline constexpr std::int32_t SamplesInFile = 4 * 1024 * 1024;

/// A block list of Count blocks that tile a channel. Every block names bytes that lie in Path,
/// except those of ManyFiles, whose files do not exist.
std::vector<std::int32_t> ListOf(Source From, std::int32_t Count, const std::string& Path);

/// A file of SamplesInFile samples in the temporary folder; gone when this is.
class SampleFile {
  public:
    SampleFile();
    ~SampleFile();
    SampleFile(const SampleFile&) = delete;
    SampleFile& operator=(const SampleFile&) = delete;
    const std::string& Path() const { return PathOf; }

  private:
    std::string PathOf;
};

/// A player object with all that stands under it, on the virtual clock, without a sound device.
class LoadedPlayer {
  public:
    /// A mono wave of 44.1 kHz, 16 bits. Throws std::logic_error when it was not taken.
    void HandOver(const std::vector<std::int32_t>& List, std::int32_t Count);

    PlayerState State;

  private:
    VirtualClock Time;
    Testing::ListLog Journal;
    Testing::ListBox Box;
    PosixFiles FileLayer;
    Apartment Home{Time, Journal};
    SoundCard Card{Home, {}, SinkRate{}, Journal};
    WaveOutDevice Wave{Card};
    DlServiceLibrary Service{Card, Journal};
    System Os{Home, FileLayer, Box, Journal, Wave, Service, [this] {
                  return std::make_unique<DirectX7Root>(Card);
              }};
    WoroFileBlockMod Store{FileLayer, Box, State};
    PlayDllClass Player{Os, State, Store};
};

}  // namespace Tolvar::Bench
