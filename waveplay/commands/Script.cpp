#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include "platform/posix/Posix.h"
#include "waveplay/commands/Commands.h"
#include "waveplay/script/ScriptParser.h"

namespace Tolvar {
namespace {

std::string ReadAll(const std::string& Path) {
    std::ifstream Named;
    if (Path != "-") Named.open(Path, std::ios::binary);
    std::istream& In = Path == "-" ? std::cin : Named;
    std::ostringstream Text;
    errno = 0;
    if (In && In.peek() != std::istream::traits_type::eof()) Text << In.rdbuf();
    if (In.bad() || (Path != "-" && !Named.is_open())) {
        throw ErrnoFailure("cannot read " + Path, errno);
    }
    return std::move(Text).str();
}

}  // namespace

ExitCode Script(const ScriptOptions& Options) {
    // The whole script is looked through first, so that one with a mistake does nothing.
    std::vector<ScriptAction> Actions;
    try {
        Actions = ParseScript(ReadAll(Options.Path));
    } catch (const ScriptMistake& Mistake) {
        const char* Name = Options.Path == "-" ? "standard input" : Options.Path.c_str();
        std::fprintf(stderr, "waveplay: %s, line %s\n", Name, Mistake.what());
        return ExitUsage;
    }
    return ScriptRunner(Options.Setup).Run(Actions, Options.Strict);
}

}  // namespace Tolvar
