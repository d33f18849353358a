#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Tolvar {

enum class FileAccess {
    Read,    ///< the file must exist
    Write,   ///< made when missing, never shortened
    Update,  ///< for writing; the file must exist
};

/// One open file; the destructor closes it. Byte positions are 1-based. Apartment's thread only.
/// Failures are RuntimeFailure(File) and name the file, the position and what the system said.
class File {
  public:
    virtual ~File() = default;

    /// Fills Into whole from BytePos on; a file that ends earlier is a failure, never zeros.
    virtual void ReadAt(std::int64_t BytePos, std::span<std::byte> Into) = 0;

    /// Writes From whole at BytePos; the file grows as needed.
    virtual void WriteAt(std::int64_t BytePos, std::span<const std::byte> From) = 0;

    /// Bytes.
    virtual std::int64_t Length() = 0;

    /// Cuts the file, or lengthens it by zeros. Nothing has changed when it fails.
    virtual void SetLength(std::int64_t Bytes) = 0;

    /// The last call. A failure says that something written may not have been kept; the file is
    /// closed even so.
    virtual void Close() = 0;
};

/// The file system as the system knows it: full paths as byte strings, folders joined with a
/// backslash (which is turned into this machine's separator on opening). Abstract so that tests
/// can let the n-th operation fail. Only regular files are opened; nothing here can hang.
class Files {
  public:
    virtual ~Files() = default;

    /// Never null.
    virtual std::unique_ptr<File> Open(const std::string& Name, FileAccess Access) = 0;

    /// Makes Name for writing; null, and nothing touched, when a file of that name exists.
    virtual std::unique_ptr<File> CreateNew(const std::string& Name) = 0;

    virtual bool Exists(const std::string& Name) = 0;

    /// A missing file is not a failure.
    virtual void Delete(const std::string& Name) = 0;

    /// True when both are names of one existing file, however they are spelled or linked, and when
    /// they are spelled alike. Never throws a RuntimeFailure: what cannot be looked at is no file.
    virtual bool SameFile(const std::string& One, const std::string& Other) = 0;
};

}  // namespace Tolvar
