#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "store/CarrierFile.h"
#include "store/WoroFileBlockMod.h"
#include "store/filecarrier/SampleFile.h"

namespace Tolvar {

/// One channel of 16-bit samples in a file of its own, read and written through a buffer of some of
/// them. Positions are samples, 1-based. Apartment's thread only.
///
/// What is outside the channel is answered in the message box, and the operation then does nothing.
/// An operation that throws (RuntimeFailure, std::bad_alloc) leaves samples, WaveSize, BuffLength
/// and the file, but for what the buffer had to write back, as they were; what could not be written
/// stays in the buffer and is written with the next attempt.
class FileCarrBuffClass {
  public:
    /// Makes a work file of one sample in AppTmpDir, named after the time of day, and takes its
    /// BuffLength from MemorySizeToUse. The store and the clock must outlive the carrier.
    FileCarrBuffClass(WoroFileBlockMod& Store, const Clock& TimeOfDay);
    /// Deletes the file and writes nothing. A file that blocks of the store read from is completed
    /// instead, as far as the system lets it, and left for good. Never throws.
    ~FileCarrBuffClass();
    FileCarrBuffClass(const FileCarrBuffClass&) = delete;
    FileCarrBuffClass& operator=(const FileCarrBuffClass&) = delete;

    /// Samples in the file. Setting it changes neither the file nor the buffer; a negative size is
    /// RuntimeFailure(Input).
    std::int32_t WaveSize() const { return Samples_; }
    void WaveSize(std::int32_t NewVal);

    /// FileName1 takes the named file itself; otherwise a copy of it.
    bool UseOrgFile() const { return OrgFile_; }
    void UseOrgFile(bool NewVal) { OrgFile_ = NewVal; }

    /// The most samples that the buffer holds. Setting it moves the buffer to the beginning.
    std::int32_t BuffLength() const { return BuffLen_; }
    void BuffLength(std::int32_t NewVal);

    /// Completes the file and leaves it to whoever took its name. The carrier has the name of a
    /// further work file then, which exists only if WaveSize was 0. Otherwise samples changed in a
    /// buffer that holds the whole channel make that file when they are first to be written. As
    /// long as there is none, what is not in the buffer, a new size (unless WaveSize is 0) and the
    /// writing back of a part of the channel are RuntimeFailure(File).
    void FileRelease();

    /// What is added is silent, or what the file still holds there after WaveSize was set lower;
    /// DoInitilize writes silence over all of it instead of leaving a gap.
    void ReDimSize(std::int32_t NewSz, bool DoInitilize = false);

    /// The file, completed; "" when there is none.
    std::string FileName1();
    /// Lets go of the file as the destructor does, but throws, and goes on with the named one or a
    /// copy of it. When there is no such file the carrier has none and WaveSize is 0, or a new one
    /// of one sample. Refused with RuntimeFailure before anything is deleted: the carrier's own
    /// file, what is no regular file or holds no sample, and (with UseOrgFile) one that cannot be
    /// written, or that blocks or another carrier have samples in.
    void FileName1(const std::string& NewName);

    /// Writes PutData from WavPos on; the channel grows as needed.
    void BuffPut(std::int32_t WavPos, std::span<const std::int16_t> PutData);
    /// Fills GetData from WavPos on.
    void BuffGet(std::int32_t WavPos, std::span<std::int16_t> GetData);

    /// Writes the buffer back and loads it with the samples behind NewZeroPtr; NewRange, unless it
    /// is 0, becomes BuffLength. RuntimeFailure(Input) when there are none. Makes a work file when
    /// the carrier has no name for one.
    void MovePointer(std::int32_t NewZeroPtr, std::int32_t NewRange = 0);

    /// Position 0 is a sample of its own, outside the file.
    std::int16_t WaveLR(std::int32_t WavPos);
    void WaveLR(std::int32_t WavPos, std::int16_t NewVal);

  private:
    // A channel to go on with, made whole before the present one is let go.
    struct Channel {
        CarrierFile Home;
        std::int32_t Samples = 0;
        std::vector<std::int16_t> Buff;
    };

    bool BuffHolds(std::int32_t First, std::int32_t Last) const;
    std::int16_t* BuffAt(std::int32_t WavPos);
    std::int16_t* SampleAt(std::int32_t WavPos);
    void BuffLoad(std::int32_t NewZeroPtr, std::int32_t Length);
    void BuffDrop() noexcept;
    void BuffCut(std::int32_t Size);
    void FlushBuff();
    void FlushUnlessWithin(std::int32_t Size);
    SampleFileGrowth Grow(std::int32_t NewSz, bool DoInitilize);
    void Shrink(std::int32_t NewSz);
    const std::string& MadeName() const;
    CarrierFile FreeTempFile(bool Create) const;
    void MakeTempFile();
    void MakeFile(std::span<const std::int16_t> Content);
    void KillFileIfAny();
    void RequireTakeable(const std::string& NewName) const;
    Channel Take(const std::string& NewName) const;
    CarrierFile MakeCopy(File& Given, std::int32_t Bytes) const;

    WoroFileBlockMod& Store_;
    const Clock& Time_;
    CarrierFile Own_;
    Registration Known_;
    std::int32_t Samples_ = 0;
    bool OrgFile_ = false;
    bool BuffDirty = false;
    std::int32_t ZeroPtr = 0;            // samples ahead of the buffer
    std::vector<std::int16_t> BuffData;  // from sample ZeroPtr + 1 on
    std::int16_t Sample0 = 0;
    std::int32_t BuffLen_;  // samples
};

}  // namespace Tolvar
