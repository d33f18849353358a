#include "platform/posix/ProcessGuard.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace Tolvar {

void GuardProcess() {
    // Opened the wrong way round: reading the first and writing the others fails.
    constexpr std::array Modes{O_WRONLY, O_RDONLY, O_RDONLY};
    for (int Stream = STDIN_FILENO; Stream <= STDERR_FILENO; ++Stream) {
        if (::fcntl(Stream, F_GETFD) >= 0 || errno != EBADF) continue;
        ::open("/dev/null", Modes[static_cast<std::size_t>(Stream)]);  // takes the lowest number
    }
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace Tolvar
