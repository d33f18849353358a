#include <dlfcn.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdlib>

// Loaded before the system's library: the read at a position that READ_FAILS counts to fails once,
// with the error number READ_ERROR.
namespace {

int NumberFrom(const char* Name) {
    const char* const Text = std::getenv(Name);
    return Text == nullptr ? 0 : std::atoi(Text);
}

}  // namespace

extern "C" ssize_t pread(int Fd, void* Into, std::size_t Bytes, off_t Place) {
    using Read = ssize_t (*)(int, void*, std::size_t, off_t);
    static const auto Real = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "pread"));
    static const int FailsAt = NumberFrom("READ_FAILS");
    static int Reads = 0;
    if (++Reads != FailsAt) return Real(Fd, Into, Bytes, Place);
    errno = NumberFrom("READ_ERROR");
    return -1;
}
