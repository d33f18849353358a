#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/Files.h"
#include "store/SlotSet.h"

namespace Tolvar {

/// Folder, where work files are made; RuntimeFailure(File) when it is "".
const std::string& RequireFolder(const std::string& Folder);

/// The work files that the store has made itself, as opposed to those that the editor named. One
/// that no block needs any more is written again rather than a further one made; the destructor
/// deletes them all, as far as the system lets it.
class WorkFilePool {
  public:
    explicit WorkFilePool(Files& Files) : FileLayer_(Files) {}
    ~WorkFilePool();
    WorkFilePool(const WorkFilePool&) = delete;
    WorkFilePool& operator=(const WorkFilePool&) = delete;

    /// A file of the pool that is spare, if it lies in Folder (or Folder is ""), else a name in
    /// Folder that this pool has not given out. RuntimeFailure(File) when it needs a folder and
    /// Folder is "".
    std::string NextName(const std::string& Folder);

    bool Holds(const std::string& Name) const { return Number_.contains(Name); }
    const std::vector<std::string>& Names() const { return Made_; }

    /// Opens a file of the pool, or makes Name and takes it in. Null, with nothing touched, when a
    /// file of that name exists that is not the pool's.
    std::unique_ptr<File> OpenForWriting(const std::string& Name);

    /// Blocks need the file from now on, or no longer. Nothing when it is not the pool's.
    void SetSpare(const std::string& Name, bool IsSpare) noexcept;

  private:
    Files& FileLayer_;
    std::int64_t LastNumber_ = 0;
    std::vector<std::string> Made_;  // number 1 first
    std::unordered_map<std::string, std::int32_t> Number_;
    SlotSet Spare_;
};

}  // namespace Tolvar
