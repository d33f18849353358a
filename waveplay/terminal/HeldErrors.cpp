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
    Before_ = Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!Before_ || pipe2(Ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return;
    Reading_ = Descriptor(Ends[0]);
    const Descriptor Writing(Ends[1]);
    if (dup2(Writing.Get(), STDERR_FILENO) < 0) Reading_ = Descriptor();
}

HeldErrors::~HeldErrors() {
    if (!Reading_) return;
    dup2(Before_.Get(), STDERR_FILENO);
    try {
        Take();
        if (!PartialLine_.empty()) Keep(OneLine(PartialLine_));
        if (Dropped_ > 0) std::fprintf(stderr, "(%zu lines dropped here)\n", Dropped_);
        for (const std::string& Line : Kept_)
            std::fprintf(stderr, "%s\n", Line.c_str());
    } catch (...) {
        std::fputs("out of memory for what was to be said here\n", stderr);
    }
}

std::vector<std::string> HeldErrors::Take() {
    std::vector<std::string> Lines;
    std::array<char, 4096> Bytes{};
    for (ssize_t Count; (Count = ::read(Reading_.Get(), Bytes.data(), Bytes.size())) > 0;)
        PartialLine_.append(Bytes.data(), static_cast<std::size_t>(Count));
    for (std::size_t End; (End = PartialLine_.find('\n')) != std::string::npos;
         PartialLine_.erase(0, End + 1)) {
        Lines.push_back(OneLine(std::string_view(PartialLine_).substr(0, End)));
        Keep(Lines.back());
    }
    return Lines;
}

void HeldErrors::Keep(const std::string& Line) {
    Kept_.push_back(Line);
    if (Kept_.size() <= MostKept) return;
    Kept_.pop_front();
    ++Dropped_;
}

}  // namespace Tolvar
