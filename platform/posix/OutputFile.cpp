#include "platform/posix/OutputFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "platform/posix/Abandoned.h"

namespace Tolvar {
namespace {

RuntimeFailure CannotWrite(const std::string& Name, int Error) {
    return ErrnoFailure("cannot write " + Name, Error);
}

/// Where a header can be written again after the samples.
bool CanGoBack(const Descriptor& Stream) {
    return ::lseek(Stream.Get(), 0, SEEK_CUR) == 0 &&
           (::fcntl(Stream.Get(), F_GETFL) & O_APPEND) == 0;
}

std::string WithoutLinks(const std::string& Path) {
    struct Free {
        void operator()(char* Text) const { std::free(Text); }
    };
    const std::unique_ptr<char, Free> Real(::realpath(Path.c_str(), nullptr));
    if (!Real) throw CannotWrite(Path, errno);
    return Real.get();
}

// Temporary files are called FolderOfTheTarget/.tolvar-PROCESS-NUMBER.part.
constexpr std::string_view Prefix = ".tolvar-";
constexpr std::string_view Suffix = ".part";

Descriptor OpenStream(const std::string& Path) {
    constexpr int Flags = O_WRONLY | O_CLOEXEC | O_NOCTTY;
    Descriptor Opened(::open(Path.c_str(), Flags | O_NONBLOCK));
    if (Opened) {
        ::fcntl(Opened.Get(), F_SETFL, Flags);
    } else if (errno == ENXIO) {
        std::fprintf(stderr, "%s is a pipe that nobody reads yet: waiting for a reader\n",
                     Path.c_str());
        // Opened once only, so that a signal ends the wait.
        Opened = Descriptor(::open(Path.c_str(), Flags));
    }
    return Opened;
}

Descriptor NamelessFile(const std::string& ForName) {
    std::error_code Ignored;
    std::filesystem::path Folder = std::filesystem::temp_directory_path(Ignored);
    std::string Path = (Folder / "tolvar-XXXXXX").string();
    Descriptor Made(::mkostemp(Path.data(), O_CLOEXEC));
    if (!Made) throw ErrnoFailure("cannot create " + Path + " for " + ForName, errno);
    ::unlink(Path.c_str());
    return Made;
}

// While it lives, the signals that end a program do so, whoever watches for them otherwise.
class SignalsEnd {
  public:
    SignalsEnd() {
        sigset_t Set;
        sigemptyset(&Set);
        for (const int Each : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&Set, Each);
        ::pthread_sigmask(SIG_UNBLOCK, &Set, &Before_);
    }
    ~SignalsEnd() { ::pthread_sigmask(SIG_SETMASK, &Before_, nullptr); }
    SignalsEnd(const SignalsEnd&) = delete;
    SignalsEnd& operator=(const SignalsEnd&) = delete;

  private:
    sigset_t Before_{};
};

}  // namespace

OutputFile::OutputFile(const std::string& Path) : Name_(Path) {
    struct stat Info {};
    if (Path == "-") {
        Name_ = "standard output";
        UseStream(Descriptor(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)));
    } else if (::stat(Path.c_str(), &Info) != 0) {
        if (errno != ENOENT) throw CannotWrite(Path, errno);
        UseTemporary(Path, false, 0);
    } else if (S_ISREG(Info.st_mode)) {
        if (::access(Path.c_str(), W_OK) != 0) throw CannotWrite(Path, errno);
        UseTemporary(WithoutLinks(Path), true, Info.st_mode & 0777U);
    } else {
        UseStream(OpenStream(Path));
    }
}

OutputFile::~OutputFile() {
    if (!Temporary_.empty()) ::unlink(Temporary_.c_str());
}

void OutputFile::UseStream(Descriptor Stream) {
    if (!Stream) throw CannotWrite(Name_, errno);
    Direct_ = CanGoBack(Stream);
    Target_ = std::move(Stream);
    if (!Direct_) Scratch_ = NamelessFile(Name_);
}

void OutputFile::UseTemporary(const std::string& FinalPath, bool KeepMode, unsigned Mode) {
    static std::atomic<unsigned> Number = 0;
    Final_ = FinalPath;
    const std::string Folder = Final_.substr(0, Final_.rfind('/') + 1);
    SweepAbandoned(Folder, Prefix, Suffix, 0);  // what killed programs left beside the target
    do {
        Temporary_ = Folder + std::string(Prefix) + std::to_string(::getpid()) + "-" +
                     std::to_string(++Number) + std::string(Suffix);
        Scratch_ = OpenDescriptor(Temporary_, O_RDWR | O_CREAT | O_EXCL);
    } while (Scratch_ ? !KeepFromSweeping(Scratch_) : errno == EEXIST);
    if (!Scratch_) {
        throw ErrnoFailure("cannot write " + Name_ + ": cannot create " + Temporary_, errno);
    }
    if (KeepMode) ::fchmod(Scratch_.Get(), Mode);
}

void OutputFile::CopyToTarget() {
    if (::lseek(Scratch_.Get(), 0, SEEK_SET) != 0) throw CannotWrite(Name_, errno);
    std::vector<std::byte> Buffer(std::size_t{1} << 18U);
    const SignalsEnd Meanwhile;  // the stream's reader may take nothing for ever
    while (true) {
        const ssize_t Count = ::read(Scratch_.Get(), Buffer.data(), Buffer.size());
        if (Count == 0) return;
        if (Count < 0 && errno != EINTR) throw CannotWrite(Name_, errno);
        if (Count > 0) {
            WriteWhole(Target_, std::span(Buffer).first(static_cast<std::size_t>(Count)), Name_);
        }
    }
}

void OutputFile::Commit() {
    if (Target_ && !Direct_) CopyToTarget();
    if (const int Error = (Target_ ? Target_ : Scratch_).Close(); Error != 0) {
        throw CannotWrite(Name_, Error);
    }
    if (Temporary_.empty()) return;
    if (::rename(Temporary_.c_str(), Final_.c_str()) != 0) throw CannotWrite(Name_, errno);
    Temporary_.clear();
}

}  // namespace Tolvar
