#include "waveplay/sound/DecodeProgress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace Tolvar {

DecodeProgress::DecodeProgress(const std::string& Path, std::int64_t Frames)
    : Name_(std::filesystem::path(Path).filename().string()),
      Whole_(std::max<std::int64_t>(1, Frames)),
      Wanted_(isatty(STDERR_FILENO) == 1),
      Due_(std::chrono::steady_clock::now() + std::chrono::seconds(1)) {}

DecodeProgress::~DecodeProgress() {
    if (Shown_) std::fputs("\r\033[K", stderr);
}

void DecodeProgress::Reached(std::int64_t Frame) {
    if (!Wanted_) return;
    const auto Now = std::chrono::steady_clock::now();
    if (Now < Due_) return;
    Due_ = Now + std::chrono::milliseconds(100);
    Shown_ = true;
    std::fprintf(stderr, "\rdecoding %s: %lld %%\033[K", Name_.c_str(),
                 static_cast<long long>(Frame * 100 / Whole_));
}

}  // namespace Tolvar
