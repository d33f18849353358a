#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Tolvar {

/// Where the samples of a block are. The codes are also those of the editor's block lists.
enum BlkTypes : std::int32_t {
    BlkFree = 0,     ///< nowhere: the record may be reused
    BlkBoth = 1,     ///< in BlkData and, unchanged, in a work file
    BlkBuff = 2,     ///< in BlkData only
    BlkFile = 3,     ///< in a work file only
    BlkOrgFile = 4,  ///< in an original sound file, in that file's own format
    BlkSilent = 5,   ///< nowhere: every sample is 0
};

/// One block: a run of consecutive samples of one channel.
struct BlockRec {
    std::int32_t BlkFileNo = 0;    ///< slot of its original or work file; 0 = none
    std::int32_t BlkFilePos = 0;   ///< bytes, 1-based: the first sample of this channel
    std::int32_t BlkStartPos = 0;  ///< samples, 1-based, within the channel
    std::int32_t BlkType = BlkFree;
    std::unique_ptr<std::int16_t[]> BlkData;  ///< BlkLen samples while in memory, else null
    std::int32_t BlkLen = 0;                  ///< samples
    std::int32_t BlkUseStamp = 0;             ///< UseClock at the last use; 0 = never
};

struct OrgFileRec {
    std::string OrgFileName;  ///< full path; "" = the slot holds no file
    std::int32_t OrgChannels = 0;
    std::int32_t OrgBits = 0;
    std::int32_t OrgUseCnt = 0;  ///< blocks that read from it; 0 = slot free
};

struct WorkFileRec {
    std::string WorkFileName;     ///< full path
    std::int32_t WorkUseCnt = 0;  ///< blocks that keep samples in it; 0 = slot free
};

}  // namespace Tolvar
