#include "waveplay/sound/DecodeProgress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace Tolvar {

DecodeProgress::DecodeProgress(const std::string& Path, std::int64_t Frames)
    : Name(std::filesystem::path(Path).filename().string()),
      Whole(std::max<std::int64_t>(1, Frames)),
      Wanted(isatty(STDERR_FILENO) == 1),
      Due(std::chrono::steady_clock::now() + std::chrono::seconds(1)) {}

DecodeProgress::~DecodeProgress() {
    if (Shown) std::fputs("\r\033[K", stderr);
}

void DecodeProgress::Reached(std::int64_t Frame) {
    if (!Wanted) return;
    const auto Now = std::chrono::steady_clock::now();
    if (Now < Due) return;
    Due = Now + std::chrono::milliseconds(100);
    Shown = true;
    std::fprintf(stderr, "\rdecoding %s: %lld %%\033[K", Name.c_str(),
                 static_cast<long long>(Frame * 100 / Whole));
}

}  // namespace Tolvar
