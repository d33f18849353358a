#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/Files.h"

namespace Tolvar {

/// Files of 16-bit samples and nothing else, low byte first, that are opened for each access.
/// Positions and lengths are samples, Before those that lie ahead of the first one meant; byte
/// positions beyond 32 bits are RuntimeFailure(Overflow). What cannot be done is
/// RuntimeFailure(File), a close that fails after a write included.

void SamplesRead(Files& Disk, const std::string& Name, std::int32_t Before,
                 std::span<std::int16_t> Into);

/// The file must exist.
void SamplesWrite(Files& Disk, const std::string& Name, std::int32_t Before,
                  std::span<const std::int16_t> From);

/// Makes Name with these samples; false, and nothing touched, when a file of that name exists.
bool SampleFileMake(Files& Disk, const std::string& Name, std::span<const std::int16_t> Samples);

/// Writes Bytes bytes of From over the beginning of the file Name, which must exist.
void SampleFileCopy(File& From, std::int64_t Bytes, Files& Disk, const std::string& Name);

/// Makes the existing file Name Bytes bytes long.
void SampleFileSetLength(Files& Disk, const std::string& Name, std::int32_t Bytes);

/// The same, but a file that is missing or cannot be opened is left alone, and so is any with a
/// negative length: false. One that opens and does not take the length is RuntimeFailure(File).
bool SetFileSize(Files& Disk, const std::string& Name, std::int32_t Bytes);

/// A file made longer. When that fails it is as before, as far as the system lets it.
class SampleFileGrowth {
  public:
    /// Samples that lie in the file, and those it is to have, which are more.
    SampleFileGrowth(Files& Disk, const std::string& Name, std::int32_t Old, std::int32_t New);

    /// One zero as the last sample; what is skipped is zeros as well.
    void WriteLast() { WriteZeros(NewSize_ - 1, 1); }
    /// Zeros from the first new sample on, at most Piece, which is positive, in one write.
    void WriteAll(std::int32_t Piece) { WriteZeros(OldSize_, Piece); }
    /// Makes the file as it was.
    void Undo();

  private:
    void WriteZeros(std::int32_t From, std::int32_t Piece);

    Files& Disk_;
    std::string Name_;
    std::int32_t OldSize_;
    std::int32_t NewSize_;
    std::int64_t OldBytes_ = 0;           // length of the file, which may end with half a sample
    std::vector<std::byte> Overwritten_;  // what lay behind the samples
    std::int64_t OverwrittenPos_ = 1;
};

}  // namespace Tolvar
