#include <algorithm>
#include <string_view>

#include "fuzz/Targets.h"
#include "waveplay/script/ScriptParser.h"

namespace Tolvar::Fuzz {

void LookThroughScript(Bytes Input) {
    const std::string_view Text(reinterpret_cast<const char*>(Input.data()), Input.size());
    const long Lines = 1 + std::ranges::count(Text, '\n');
    try {
        const auto Actions = ParseScript(Text);
        Demand(static_cast<long>(Actions.size()) <= Lines, "a line is one command at most");
        Demand(std::ranges::all_of(Actions, [](const auto& Each) { return bool{Each}; }),
               "a command can be run");
    } catch (const ScriptMistake& Mistake) {
        char* Rest = nullptr;
        const long Line = std::strtol(Mistake.what(), &Rest, 10);
        Demand(Line >= 1 && Line <= Lines, "a mistake names a line of the script");
        Demand(std::string_view(Rest).starts_with(": ") && Rest[2] != '\0', "and says what");
    }
}

}  // namespace Tolvar::Fuzz
