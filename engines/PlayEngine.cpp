#include "engines/PlayEngine.h"

#include <string>
#include <utility>

#include "platform/Log.h"

namespace Tolvar {

PlayEngine::PlayEngine(System& OsOf, PlayerState& Shared, MsgBoxObEvent Event)
    : Os(OsOf), State(Shared), MsgBoxOb(std::move(Event)) {}

void PlayEngine::Report(std::string_view Ttl) {
    MsgBoxOb("S2", Ttl);
}

void PlayEngine::LogCause(std::string_view Ttl, std::string_view Cause) noexcept try {
    Os.Journal.Write(std::string(Ttl) + ": " + std::string(Cause));
} catch (...) {
    Os.Journal.Write(Ttl);  // out of memory for the cause
}

}  // namespace Tolvar
