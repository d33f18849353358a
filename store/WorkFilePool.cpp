#include "store/WorkFilePool.h"

#include "platform/Checked.h"

namespace Tolvar {

const std::string& RequireFolder(const std::string& Folder) {
    if (!Folder.empty()) return Folder;
    throw RuntimeFailure(FailureKind::File,
                         "Cannot name a new work file: AppTmpDir, its folder, is empty");
}

WorkFilePool::~WorkFilePool() {
    for (const std::string& Name : Made_) {
        try {
            FileLayer_.Delete(Name);
        } catch (...) {  // the server ends; whatever stays in the folder is the user's to delete
            continue;
        }
    }
}

std::string WorkFilePool::NextName(const std::string& Folder) {
    if (const std::int32_t Number = Spare_.First(); Number != 0) {
        const std::string& Name = Made_[static_cast<std::size_t>(Number) - 1];
        // A folder that was left behind may be full or gone.
        if (Folder.empty() || Name.starts_with(Folder + "\\")) return Name;
    }
    return RequireFolder(Folder) + "\\wb" + std::to_string(++LastNumber_) + ".tmp";
}

std::unique_ptr<File> WorkFilePool::OpenForWriting(const std::string& Name) {
    if (Holds(Name)) return FileLayer_.Open(Name, FileAccess::Write);
    const std::int32_t Number = Checked<std::int32_t>(static_cast<std::int64_t>(Made_.size()) + 1);
    Spare_.Reserve(Number);
    Made_.push_back(Name);
    try {
        Number_.emplace(Name, Number);
        if (auto Fresh = FileLayer_.CreateNew(Name)) {
            Spare_.Insert(Number);
            return Fresh;
        }
    } catch (...) {
        Number_.erase(Name);
        Made_.pop_back();
        throw;
    }
    Number_.erase(Name);
    Made_.pop_back();
    return nullptr;
}

void WorkFilePool::SetSpare(const std::string& Name, bool IsSpare) noexcept {
    const auto Known = Number_.find(Name);
    if (Known == Number_.end()) return;
    IsSpare ? Spare_.Insert(Known->second) : Spare_.Erase(Known->second);
}

}  // namespace Tolvar
