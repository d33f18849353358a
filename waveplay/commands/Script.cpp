#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/posix/Posix.h"
#include "waveplay/commands/Commands.h"
#include "waveplay/script/ScriptParser.h"

namespace Tolvar {
namespace {

std::string InTexts(const std::string& Path) {
    return Path == "-" ? "standard input" : Path;
}

Descriptor Open(const std::string& Path) {
    if (Path == "-") return Descriptor(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    return OpenDescriptor(Path, O_RDONLY);
}

std::string ReadAll(const std::string& Path) {
    const Descriptor In = Open(Path);
    if (!In) throw ErrnoFailure("cannot read " + InTexts(Path), errno);
    std::string Text;
    std::array<char, 4096> Buffer{};
    while (true) {
        const ssize_t Count = ::read(In.Get(), Buffer.data(), Buffer.size());
        if (Count == 0) return Text;
        if (Count > 0) Text.append(Buffer.data(), static_cast<std::size_t>(Count));
        if (Count < 0 && errno != EINTR) {
            throw ErrnoFailure("cannot read " + InTexts(Path), errno);
        }
    }
}

}  // namespace

ExitCode Script(const ScriptOptions& Options) {
    // The whole script is looked through first, so that one with a mistake does nothing.
    std::vector<ScriptAction> Actions;
    try {
        Actions = ParseScript(ReadAll(Options.Path));
    } catch (const ScriptMistake& Mistake) {
        std::fprintf(stderr, "waveplay: %s, line %s\n", InTexts(Options.Path).c_str(),
                     Mistake.what());
        return ExitUsage;
    }
    return ScriptRunner(Options.Setup).Run(Actions, Options.Strict);
}

}  // namespace Tolvar
