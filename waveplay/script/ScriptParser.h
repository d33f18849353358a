#pragma once

#include <string_view>
#include <vector>

#include "waveplay/script/ScriptRunner.h"
#include "waveplay/script/ScriptWords.h"

namespace Tolvar {

/// The commands of a whole script. ScriptMistake that begins with the number of the first wrong
/// line and a colon.
std::vector<ScriptAction> ParseScript(std::string_view Text);

}  // namespace Tolvar
