#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/Posix.h"

namespace Tolvar {
namespace {

std::string HostPath(const std::string& Name) {
    if (Name.find('\0') != std::string::npos) {
        throw RuntimeFailure(FailureKind::File,
                             "a file name holds a zero byte: " + std::string(Name.c_str()));
    }
    std::string Path = Name;
    std::ranges::replace(Path, '\\', '/');
    return Path;
}

std::string AtByte(const char* Action, const std::string& Path, std::int64_t BytePos) {
    return std::string("cannot ") + Action + " " + Path + " at byte " + std::to_string(BytePos);
}

void CheckPosition(const char* Action, const std::string& Path, std::int64_t BytePos) {
    if (BytePos >= 1) return;
    throw RuntimeFailure(FailureKind::File,
                         AtByte(Action, Path, BytePos) + ": the first byte is number 1");
}

int FlagsFor(FileAccess Access) {
    switch (Access) {
        case FileAccess::Read:
            return O_RDONLY;
        case FileAccess::Write:
            return O_RDWR | O_CREAT;
        case FileAccess::Update:
            break;
    }
    return O_RDWR;
}

class PosixFile : public File {
  public:
    PosixFile(Descriptor Fd, std::string Path) : Fd_(std::move(Fd)), Path_(std::move(Path)) {}

    void ReadAt(std::int64_t BytePos, std::span<std::byte> Into) override {
        CheckPosition("read", Path_, BytePos);
        std::size_t Got = 0;
        while (Got < Into.size()) {
            const ssize_t Count = ::pread(Fd_.Get(), Into.data() + Got, Into.size() - Got,
                                          BytePos - 1 + static_cast<off_t>(Got));
            if (Count < 0 && errno == EINTR) continue;
            if (Count < 0) throw ErrnoFailure(AtByte("read", Path_, BytePos), errno);
            if (Count == 0) throw TooShort(BytePos, Into.size(), Got);
            Got += static_cast<std::size_t>(Count);
        }
    }

    void WriteAt(std::int64_t BytePos, std::span<const std::byte> From) override {
        CheckPosition("write", Path_, BytePos);
        std::size_t Done = 0;
        while (Done < From.size()) {
            const ssize_t Count = ::pwrite(Fd_.Get(), From.data() + Done, From.size() - Done,
                                           BytePos - 1 + static_cast<off_t>(Done));
            if (Count < 0 && errno == EINTR) continue;
            if (Count < 0) throw ErrnoFailure(AtByte("write", Path_, BytePos), errno);
            if (Count == 0) throw NothingTaken(AtByte("write", Path_, BytePos));
            Done += static_cast<std::size_t>(Count);
        }
    }

    std::int64_t Length() override {
        struct stat Info {};
        if (::fstat(Fd_.Get(), &Info) != 0) {
            throw ErrnoFailure("cannot measure " + Path_, errno);
        }
        return Info.st_size;
    }

    void SetLength(std::int64_t Bytes) override {
        int Result = 0;
        do {
            Result = ::ftruncate(Fd_.Get(), Bytes);
        } while (Result != 0 && errno == EINTR);
        if (Result != 0) {
            throw ErrnoFailure("cannot make " + Path_ + " " + std::to_string(Bytes) + " bytes long",
                               errno);
        }
    }

    void Close() override {
        if (const int Error = Fd_.Close(); Error != 0) {
            throw ErrnoFailure("cannot finish writing " + Path_, Error);
        }
    }

  private:
    RuntimeFailure TooShort(std::int64_t BytePos, std::size_t Wanted, std::size_t Got) const {
        return {FailureKind::File, AtByte("read", Path_, BytePos) + ": wanted " +
                                       std::to_string(Wanted) + " bytes, but the file ends after " +
                                       std::to_string(Got)};
    }

    Descriptor Fd_;
    std::string Path_;
};

}  // namespace

std::unique_ptr<File> PosixFiles::Open(const std::string& Name, FileAccess Access) {
    const std::string Path = HostPath(Name);
    // Non-blocking, so that a pipe opens at once and can be refused.
    Descriptor Fd = OpenDescriptor(Path, FlagsFor(Access) | O_NONBLOCK);
    struct stat Info {};
    if (!Fd || ::fstat(Fd.Get(), &Info) != 0) throw ErrnoFailure("cannot open " + Path, errno);
    if (!S_ISREG(Info.st_mode)) {
        throw RuntimeFailure(FailureKind::File, "cannot open " + Path + ": not a regular file");
    }
    return std::make_unique<PosixFile>(std::move(Fd), Path);
}

std::unique_ptr<File> PosixFiles::CreateNew(const std::string& Name) {
    const std::string Path = HostPath(Name);
    Descriptor Fd = OpenDescriptor(Path, O_RDWR | O_CREAT | O_EXCL);
    if (!Fd && errno == EEXIST) return nullptr;
    if (!Fd) throw ErrnoFailure("cannot create " + Path, errno);
    return std::make_unique<PosixFile>(std::move(Fd), Path);
}

bool PosixFiles::Exists(const std::string& Name) {
    const std::string Path = HostPath(Name);
    struct stat Info {};
    if (::lstat(Path.c_str(), &Info) == 0) return true;
    if (errno == ENOENT || errno == ENOTDIR) return false;
    throw ErrnoFailure("cannot look for " + Path, errno);
}

void PosixFiles::Delete(const std::string& Name) {
    const std::string Path = HostPath(Name);
    if (::unlink(Path.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) {
        throw ErrnoFailure("cannot delete " + Path, errno);
    }
}

bool PosixFiles::SameFile(const std::string& One, const std::string& Other) {
    if (One == Other) return true;
    if ((One + Other).find('\0') != std::string::npos) return false;
    const std::string Path = HostPath(One);
    const std::string OtherPath = HostPath(Other);
    if (Path == OtherPath) return true;
    struct stat Info {};
    struct stat OtherInfo {};
    return ::stat(Path.c_str(), &Info) == 0 && ::stat(OtherPath.c_str(), &OtherInfo) == 0 &&
           Info.st_dev == OtherInfo.st_dev && Info.st_ino == OtherInfo.st_ino;
}

}  // namespace Tolvar
