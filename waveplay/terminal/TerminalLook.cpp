#include "waveplay/terminal/TerminalLook.h"

#include <string>

namespace Tolvar {
namespace {

using Environment = std::function<const char*(const char* Name)>;

std::string ValueOf(const Environment& Variable, const char* Name) {
    const char* Value = Variable(Name);
    return Value == nullptr ? std::string() : std::string(Value);
}

bool HasUtf8(const Environment& Variable) {
    for (const char* Name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const std::string Locale = ValueOf(Variable, Name);
        if (Locale.empty()) continue;
        for (const char* Spelling : {"UTF-8", "utf-8", "UTF8", "utf8"}) {
            if (Locale.find(Spelling) != std::string::npos) return true;
        }
        return false;
    }
    return false;
}

Palette ColoursOf(const Environment& Variable, const std::string& Term) {
    if (!ValueOf(Variable, "NO_COLOR").empty() || Term == "dumb" || Term == "vt100") {
        return Palette::None;
    }
    const std::string Deep = ValueOf(Variable, "COLORTERM");
    const bool Many =
        Term.find("256color") != std::string::npos || Deep == "truecolor" || Deep == "24bit";
    return Many ? Palette::Many : Palette::Sixteen;
}

}  // namespace

TerminalLook LookFrom(const Environment& Variable) {
    const std::string Term = ValueOf(Variable, "TERM");
    return {ColoursOf(Variable, Term), HasUtf8(Variable), !Term.empty() && Term != "dumb"};
}

}  // namespace Tolvar
