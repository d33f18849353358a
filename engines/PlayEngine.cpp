#include "engines/PlayEngine.h"

#include <utility>

#include "platform/Log.h"

namespace Tolvar {

PlayEngine::PlayEngine(System& OsOf, PlayerState& Shared, MsgBoxObEvent Event)
    : Os(OsOf), State(Shared), MsgBoxOb(std::move(Event)) {}

void PlayEngine::Report(std::string_view Ttl) {
    // A copy, because the editor may have the engine dropped inside the report.
    if (const auto Raise = MsgBoxOb) Raise("S2", Ttl);
}

void PlayEngine::LogCause(std::string_view Ttl, std::string_view Cause) noexcept {
    Tolvar::LogCause(Os.Journal, Ttl, Cause);
}

}  // namespace Tolvar
