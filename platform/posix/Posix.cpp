#include "platform/posix/Posix.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Tolvar {

RuntimeFailure ErrnoFailure(const std::string& What, int Error, FailureKind Kind) {
    return {Kind, What + ": " + std::generic_category().message(Error)};
}

RuntimeFailure NothingTaken(const std::string& What) {
    return {FailureKind::File, What + ": the system takes no more and does not say why"};
}

int Descriptor::Close() noexcept {
    const int Fd = std::exchange(Fd_, -1);
    // Never tried again: Linux frees the number even when a signal came between.
    return Fd >= 0 && ::close(Fd) != 0 && errno != EINTR ? errno : 0;
}

Descriptor OpenDescriptor(const std::string& Path, int Flags, unsigned Mode) noexcept {
    int Fd = -1;
    do {
        Fd = ::open(Path.c_str(), Flags | O_CLOEXEC | O_NOCTTY, Mode);
    } while (Fd < 0 && errno == EINTR);
    return Descriptor(Fd);
}

void WriteWhole(const Descriptor& To, std::span<const std::byte> From, const std::string& Name) {
    while (!From.empty()) {
        const ssize_t Count = ::write(To.Get(), From.data(), From.size());
        if (Count < 0 && errno == EINTR) continue;
        if (Count < 0) throw ErrnoFailure("cannot write " + Name, errno);
        if (Count == 0) throw NothingTaken("cannot write " + Name);
        From = From.subspan(static_cast<std::size_t>(Count));
    }
}

}  // namespace Tolvar
