#pragma once

#include <variant>

#include "waveplay/commands/Commands.h"

namespace Tolvar {

/// What the command line asks for; an ExitCode when it has been answered already (help, version,
/// or a mistake that was explained on standard error).
using Request = std::variant<ExitCode, PlayOptions, RenderOptions, ScriptOptions>;

/// Looks at nothing but the arguments.
Request ParseCommandLine(int Count, const char* const* Arguments);

}  // namespace Tolvar
