#include "engines/PlayEngine.h"

#include <utility>

#include "platform/Log.h"

namespace Tolvar {

PlayEngine::PlayEngine(EngineSetup Setup)
    : Os(Setup.Os),
      State(Setup.State),
      SharedForms_(std::move(Setup.Forms)),
      MsgBoxOb(std::move(Setup.Event)) {}

void PlayEngine::Report(std::string_view Ttl) {
    // A copy, because the editor may have the engine dropped inside the report.
    if (const auto Raise = MsgBoxOb) Raise("S2", Ttl);
}

void PlayEngine::LogCause(std::string_view Ttl, std::string_view Cause) noexcept {
    Tolvar::LogCause(Os.Journal, Ttl, Cause);
}

}  // namespace Tolvar
