#include "waveplay/files/WorkFolder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/posix/Abandoned.h"

namespace Tolvar {
namespace {

constexpr std::string_view FolderPrefix = "waveplay-work-";

std::atomic<WorkFolder*> Live = nullptr;  // what the signal handler removes

[[noreturn]] void CannotMake(const std::string& Path, int Error) {
    throw ErrnoFailure("cannot make a folder for work files: " + Path, Error);
}

std::string TemporaryFolder() {
    const char* const Named = getenv("TMPDIR");
    const std::string Wanted = Named != nullptr && *Named != '\0' ? Named : "/tmp";
    std::error_code Error;
    std::string Full = std::filesystem::absolute(Wanted, Error).lexically_normal().string();
    if (Full.find('\\') != std::string::npos) {
        throw RuntimeFailure(FailureKind::File, "the temporary folder " + Full +
                                                    " has a backslash, which parts folders");
    }
    return Full;
}

// A file's name in the folder, in a form that a signal handler can make as well.
struct FileName {
    explicit FileName(int Number) { std::to_chars(Text.data(), Text.data() + Text.size(), Number); }
    std::array<char, 16> Text{};
};

}  // namespace

WorkFolder::WorkFolder() {
    const std::string Parent = TemporaryFolder();
    SweepAbandoned(Parent, FolderPrefix, "", O_DIRECTORY);
    while (!Make(Parent)) {
    }
    Live = this;
    Will_.emplace(RemoveLive);
}

WorkFolder::~WorkFolder() {
    Remove();
    Will_.reset();
    Live = nullptr;
}

// False when another program swept the folder away before it was locked.
bool WorkFolder::Make(const std::string& Parent) {
    Path_ = Parent + "/" + std::string(FolderPrefix) + "XXXXXX";
    if (mkdtemp(Path_.data()) == nullptr) CannotMake(Path_, errno);
    Lock_ = OpenDescriptor(Path_, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (!Lock_ && errno == ENOENT) return false;
    if (!Lock_) {
        const int Error = errno;
        rmdir(Path_.c_str());
        CannotMake(Path_, Error);
    }
    return KeepFromSweeping(Lock_);
}

std::string WorkFolder::NextFile() {
    return Path_ + "/" + FileName(++Files_).Text.data();
}

void WorkFolder::Remove() noexcept {
    for (int Number = Files_; Number > 0; --Number)
        unlinkat(Lock_.Get(), FileName(Number).Text.data(), 0);
    rmdir(Path_.c_str());
}

void WorkFolder::RemoveLive() noexcept {
    if (WorkFolder* const Folder = Live) Folder->Remove();
}

WorkFileWriter::WorkFileWriter(const std::string& Path, std::int64_t Frames,
                               const std::string& Source)
    : Path_(Path),
      Name_("the work file " + Path_ + " for " + Source),
      Out_(OpenDescriptor(Path_, O_WRONLY | O_CREAT | O_EXCL, 0600)) {
    if (!Out_) throw ErrnoFailure("cannot make " + Name_, errno);
    const auto Expected = static_cast<off_t>(Frames * std::int64_t{sizeof(std::int16_t)});
    if (Expected == 0 || fallocate(Out_.Get(), 0, 0, Expected) == 0) return;
    const bool CannotTell = errno == EOPNOTSUPP || errno == ENOSYS || errno == EINTR;
    if (!CannotTell) {
        throw ErrnoFailure("no room for the " + std::to_string(Expected) + " bytes of " + Name_,
                           errno);
    }
}

void WorkFileWriter::Append(std::span<const std::int16_t> Samples) {
    const auto Raw = std::as_bytes(Samples);
    WriteWhole(Out_, Raw, Name_);
    Bytes_ += static_cast<std::int64_t>(Raw.size());
}

void WorkFileWriter::Finish() {
    int Error = ftruncate(Out_.Get(), static_cast<off_t>(Bytes_)) == 0 ? 0 : errno;
    const int CloseError = Out_.Close();
    if (Error == 0) Error = CloseError;
    if (Error != 0) throw ErrnoFailure("cannot keep " + Name_, Error);
}

}  // namespace Tolvar
