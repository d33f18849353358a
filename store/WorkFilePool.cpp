#include "store/WorkFilePool.h"

#include "platform/Checked.h"

namespace Tolvar {

const std::string& RequireFolder(const std::string& Folder) {
    if (!Folder.empty()) return Folder;
    throw RuntimeFailure(FailureKind::File,
                         "Cannot name a new work file: AppTmpDir, its folder, is empty");
}

WorkFilePool::~WorkFilePool() {
    for (const std::string& Name : Made) {
        try {
            FileLayer.Delete(Name);
        } catch (...) {  // the server ends; whatever stays in the folder is the user's to delete
            continue;
        }
    }
}

std::string WorkFilePool::NextName(const std::string& Folder) {
    if (const std::int32_t Number = Spare.First(); Number != 0) {
        const std::string& Name = Made[static_cast<std::size_t>(Number) - 1];
        // A folder that was left behind may be full or gone.
        if (Folder.empty() || Name.starts_with(Folder + "\\")) return Name;
    }
    return RequireFolder(Folder) + "\\wb" + std::to_string(++LastNumber) + ".tmp";
}

std::unique_ptr<File> WorkFilePool::OpenForWriting(const std::string& Name) {
    if (Holds(Name)) return FileLayer.Open(Name, FileAccess::Write);
    const std::int32_t Number = Checked<std::int32_t>(static_cast<std::int64_t>(Made.size()) + 1);
    Spare.Reserve(Number);
    Made.push_back(Name);
    try {
        NumberOf.emplace(Name, Number);
        if (auto Fresh = FileLayer.CreateNew(Name)) {
            Spare.Insert(Number);
            return Fresh;
        }
    } catch (...) {
        NumberOf.erase(Name);
        Made.pop_back();
        throw;
    }
    NumberOf.erase(Name);
    Made.pop_back();
    return nullptr;
}

void WorkFilePool::SetSpare(const std::string& Name, bool IsSpare) noexcept {
    const auto Known = NumberOf.find(Name);
    if (Known == NumberOf.end()) return;
    IsSpare ? Spare.Insert(Known->second) : Spare.Erase(Known->second);
}

}  // namespace Tolvar
