#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/BlockLists.h"
#include "tests/support/Dice.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

/// What is heard at once: left, right. A mono wave's right is 0.
using WaveFrame = std::array<std::int16_t, 2>;

/// A wave as an editor hands it over, and as it is heard.
struct MadeWave {
    std::int32_t Bits = 16;
    std::int32_t Channels = 0;
    std::int32_t Rate = 0;
    std::array<std::vector<ListEntry>, 2> Blocks;  ///< left, right
    std::vector<WaveFrame> Frames;                 ///< 8-bit samples are scaled
};

/// The sound files that all waves are cut from: original files of every layout and work files.
const std::map<std::string, MemoryFiles::Bytes>& WaveFiles();

/// A wave of random format and length, of random blocks from the files and of silence.
std::shared_ptr<const MadeWave> MakeWave(Dice& Random);

}  // namespace Tolvar::Testing
