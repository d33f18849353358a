#include "waveplay/terminal/HeldErrors.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

#include "platform/posix/TextLog.h"

namespace Tolvar {

// Neither end waits: a program that nobody reads loses lines and goes on.
HeldErrors::HeldErrors() {
    std::array<int, 2> Ends{};
    Before = Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!Before || pipe2(Ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return;
    Reading = Descriptor(Ends[0]);
    const Descriptor Writing(Ends[1]);
    if (dup2(Writing.Get(), STDERR_FILENO) < 0) Reading = Descriptor();
}

HeldErrors::~HeldErrors() {
    if (!Reading) return;
    dup2(Before.Get(), STDERR_FILENO);
    try {
        Take();
        if (!Begun.empty()) Keep(OneLine(Begun));
        if (Dropped > 0) std::fprintf(stderr, "(%zu lines dropped here)\n", Dropped);
        for (const std::string& Line : Kept)
            std::fprintf(stderr, "%s\n", Line.c_str());
    } catch (...) {
        std::fputs("out of memory for what was to be said here\n", stderr);
    }
}

std::vector<std::string> HeldErrors::Take() {
    std::vector<std::string> Lines;
    std::array<char, 4096> Bytes{};
    for (ssize_t Count; (Count = ::read(Reading.Get(), Bytes.data(), Bytes.size())) > 0;)
        Begun.append(Bytes.data(), static_cast<std::size_t>(Count));
    for (std::size_t End; (End = Begun.find('\n')) != std::string::npos; Begun.erase(0, End + 1)) {
        Lines.push_back(OneLine(std::string_view(Begun).substr(0, End)));
        Keep(Lines.back());
    }
    return Lines;
}

void HeldErrors::Keep(const std::string& Line) {
    Kept.push_back(Line);
    if (Kept.size() <= MostKept) return;
    Kept.pop_front();
    ++Dropped;
}

}  // namespace Tolvar
