#pragma once

#include "platform/Files.h"

namespace Tolvar {

/// The files of this machine. Apartment's thread only.
class PosixFiles : public Files {
  public:
    std::unique_ptr<File> Open(const std::string& Name, FileAccess Access) override;
    std::unique_ptr<File> CreateNew(const std::string& Name) override;
    /// True for whatever has that name, a folder too. A folder that may not be looked into is a
    /// failure.
    bool Exists(const std::string& Name) override;
    void Delete(const std::string& Name) override;
    bool SameFile(const std::string& One, const std::string& Other) override;
};

}  // namespace Tolvar
