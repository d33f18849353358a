#pragma once

#include <string_view>
#include <vector>

#include "waveplay/script/ScriptRunner.h"
#include "waveplay/script/ScriptWords.h"

namespace Tolvar {

/// The commands of a whole script, in the grammar of docs/console.md; nothing of them runs yet.
/// Throws ScriptMistake for the first line that is wrong, whose text begins with the line's number,
/// from 1 on, and a colon.
std::vector<ScriptAction> ParseScript(std::string_view Text);

}  // namespace Tolvar
