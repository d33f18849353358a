#include "platform/posix/Abandoned.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <memory>
#include <system_error>

namespace Tolvar {

bool KeepFromSweeping(const Descriptor& Made) {
    ::flock(Made.Get(), LOCK_EX);
    struct stat Found {};
    return ::fstat(Made.Get(), &Found) != 0 || Found.st_nlink > 0;
}

namespace {

// It may be removed as long as the answer lives; none when somebody holds it or it is another's.
Descriptor LockAbandoned(const std::string& Path, int Flags) {
    Descriptor Opened = OpenDescriptor(Path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | Flags);
    struct stat Found {};
    if (!Opened || ::fstat(Opened.Get(), &Found) != 0 || Found.st_uid != ::geteuid())
        return Descriptor();
    return ::flock(Opened.Get(), LOCK_EX | LOCK_NB) == 0 ? std::move(Opened) : Descriptor();
}

}  // namespace

void SweepAbandoned(const std::string& Folder, std::string_view Prefix, std::string_view Suffix,
                    int Flags) noexcept try {
    // Not std::filesystem's iterator, which ends the program when there is no memory.
    const std::unique_ptr<DIR, int (*)(DIR*)> Names(
        ::opendir(Folder.empty() ? "." : Folder.c_str()), ::closedir);
    while (const dirent* const Each = Names ? ::readdir(Names.get()) : nullptr) {
        const std::string_view Name = Each->d_name;
        if (!Name.starts_with(Prefix) || !Name.ends_with(Suffix)) continue;
        const std::string Path = (std::filesystem::path(Folder) / Name).string();
        std::error_code Ignored;  // another program may sweep at the same time
        if (LockAbandoned(Path, Flags)) std::filesystem::remove_all(Path, Ignored);
    }
} catch (const std::exception&) {
    return;
}

}  // namespace Tolvar
