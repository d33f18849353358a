#include "platform/posix/Abandoned.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tolvar {

bool KeepFromSweeping(const Descriptor& Made) {
    ::flock(Made.Get(), LOCK_EX);
    struct stat Found {};
    return ::fstat(Made.Get(), &Found) != 0 || Found.st_nlink > 0;
}

Descriptor LockAbandoned(const std::string& Path, int Flags) {
    Descriptor Opened = OpenDescriptor(Path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | Flags);
    struct stat Found {};
    if (!Opened || ::fstat(Opened.Get(), &Found) != 0 || Found.st_uid != ::geteuid())
        return Descriptor();
    return ::flock(Opened.Get(), LOCK_EX | LOCK_NB) == 0 ? std::move(Opened) : Descriptor();
}

}  // namespace Tolvar
